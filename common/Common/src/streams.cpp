#include "common/streams.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <string_view>
#include <utility>

#include "common/exceptions.h"
#include "common/make_error.h"

namespace cmn {

MemStream::MemStream(std::vector<unsigned char>&& bytes) : bytes_(std::move(bytes)) {}

unsigned long long MemStream::read(unsigned char* buffer, unsigned long long size,
                                   unsigned long long offset) {
    if (bytes_.size() <= offset)
        return kPastEnd;
    const auto count = std::min<unsigned long long>(bytes_.size() - offset, size);
    if (count != 0)
        std::memcpy(buffer, bytes_.data() + offset, count);
    return count;
}

unsigned long long MemStream::write(const unsigned char* data, unsigned long long size,
                                    unsigned long long offset) {
    const auto end = offset + size;
    if (end < offset || end > bytes_.max_size())
        throw_with_trace(make_error("[MemStream] Can't grow to ", offset, " + ", size));
    if (end > bytes_.size()) {
        // The data may be this stream's own, which growing moves.
        const bool own =
            !std::less<>()(data, bytes_.data()) && std::less<>()(data, bytes_.data() + bytes_.size());
        const auto position = own ? data - bytes_.data() : 0;
        if (end > bytes_.capacity())
            bytes_.reserve(std::max<unsigned long long>(end, 2 * bytes_.capacity()));
        bytes_.resize(end);
        if (own)
            data = bytes_.data() + position;
    }
    if (size != 0)
        std::memmove(bytes_.data() + offset, data, size);
    return size;
}

unsigned long long MemStream::size() {
    return bytes_.size();
}

void MemStream::trunc(unsigned long long newSize) {
    bytes_.resize(newSize);
}

void MemStream::flush() {}

const unsigned char* MemStream::getmem(unsigned long long offset, unsigned long long& size) {
    if (offset >= bytes_.size())
        throw_with_trace(make_error("Stream has no offset: ", offset));
    size = std::min<unsigned long long>(size, bytes_.size() - offset);
    return bytes_.data() + offset;
}

void StreamToStream(IStream& src, IStream& dst, unsigned long long chunk) {
    const auto total = src.size();
    if (total == 0)
        return;
    if (chunk == 0)
        throw_with_trace(make_error("[StreamToStream] Can't copy in pieces of 0 bytes"));
    const auto fail = [total](std::string_view what, unsigned long long copied) {
        throw_with_trace(
            make_error("[StreamToStream] Can't ", what, " whole stream (", copied, " from ", total, ")"));
    };
    std::vector<unsigned char> buffer;
    for (unsigned long long offset = 0; offset < total;) {
        const auto count = std::min(total - offset, chunk);
        buffer.resize(count);
        if (src.read(buffer.data(), count, offset) != count)
            fail("read", offset);
        if (dst.write(buffer.data(), count, offset) != count)
            fail("write", offset);
        offset += count;
    }
}

void StreamToBin(IStream& stream, std::vector<unsigned char>& bytes, unsigned long long offset,
                 unsigned long long size) {
    const auto fail = [size](unsigned long long count) {
        throw_with_trace(make_error("[StreamToBin] Can't read whole stream (", count, " from ", size, ")"));
    };
    if (size == 0) {
        bytes.clear();
        return;
    }
    // No room is made for what the stream cannot give.
    const auto total = stream.size();
    const auto available = offset < total ? total - offset : 0;
    if (available < size)
        fail(available);
    bytes.resize(size);
    const auto count = stream.read(bytes.data(), size, offset);
    if (count != size)
        fail(count == IStream::kPastEnd ? 0 : count);
}

std::shared_ptr<MemStream> BinToStream(std::vector<unsigned char>&& bytes) {
    return std::make_shared<MemStream>(std::move(bytes));
}

}  // namespace cmn
