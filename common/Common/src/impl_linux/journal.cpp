#include "impl_linux/journal.h"

#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace cmn {

namespace {

// Longer messages would have to be handed over in a file.
constexpr std::size_t kLongestText = 32'768;

iovec Piece(std::string_view text) {
    return {const_cast<char*>(text.data()), text.size()};  // NOLINT: it is only read
}

// Eight bytes, the least significant first.
std::array<char, 8> LengthOf(std::string_view text) {
    std::array<char, 8> bytes{};
    std::uint64_t rest = text.size();
    for (char& byte : bytes) {
        byte = static_cast<char>(rest & 0xFF);
        rest >>= 8;
    }
    return bytes;
}

}  // namespace

// libsystemd's own function waits for a journal that hangs.
void SendToJournal(const char* socketPath, std::string_view identifier, std::string_view text) noexcept {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (std::strlen(socketPath) >= sizeof address.sun_path)
        return;
    std::strcpy(address.sun_path, socketPath);  // NOLINT: it fits
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0)
        return;
    text = text.substr(0, kLongestText);
    // With its length in front a text may hold line ends, which else begin a field.
    const auto length = LengthOf(text);
    std::array<iovec, 6> message{
        Piece("PRIORITY=3\nSYSLOG_IDENTIFIER="), Piece(identifier), Piece("\nMESSAGE\n"),
        Piece({length.data(), length.size()}),   Piece(text),       Piece("\n")};
    msghdr header{};
    header.msg_name = &address;
    header.msg_namelen = sizeof address;
    header.msg_iov = message.data();
    header.msg_iovlen = message.size();
    (void)sendmsg(descriptor, &header, MSG_NOSIGNAL | MSG_DONTWAIT);
    close(descriptor);
}

}  // namespace cmn
