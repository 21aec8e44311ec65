#include <gmock/gmock.h>

#include <optional>
#include <string>

#include "impl_linux/machine.h"
#include "impl_linux/process.h"

namespace {

using cmn::DefaultRouteInterfaces;
using cmn::DefaultRouteInterfacesV6;
using cmn::FindAssignment;
using cmn::FormatMACAddress;
using cmn::FormatOSName;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(FindAssignmentTest, FindsPlainAndQuotedValues) {
    const std::string text = "NAME=\"Debian GNU/Linux\"\nID=debian\nX='a b'\nEMPTY=\n#C=1\n";
    EXPECT_EQ(FindAssignment(text, "NAME"), "Debian GNU/Linux");
    EXPECT_EQ(FindAssignment(text, "ID"), "debian");
    EXPECT_EQ(FindAssignment(text, "X"), "a b");
    EXPECT_EQ(FindAssignment(text, "EMPTY"), "");
    EXPECT_EQ(FindAssignment("LAST=1", "LAST"), "1");
}

TEST(FindAssignmentTest, MissingNamesAreEmpty) {
    EXPECT_EQ(FindAssignment("", "NAME"), std::nullopt);
    EXPECT_EQ(FindAssignment("NAME\nXNAME=1\nNAMES=2\n NAME=3\n", "NAME"), std::nullopt);
}

TEST(FindAssignmentTest, FirstOfEqualNamesCounts) {
    EXPECT_EQ(FindAssignment("A=1\nA=2\n", "A"), "1");
}

TEST(FindAssignmentTest, ResolvesTheEscapesOfAShell) {
    EXPECT_EQ(FindAssignment(R"(A="a\"b\\c\$d")", "A"), R"(a"b\c$d)");
    EXPECT_EQ(FindAssignment(R"(A='a\b')", "A"), R"(a\b)");
    EXPECT_EQ(FindAssignment("A=\"never closed", "A"), "never closed");
    EXPECT_EQ(FindAssignment("A=\"a\" # comment", "A"), "a");
}

constexpr auto kHead =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";

TEST(DefaultRouteTest, TheLowestMetricComesFirst) {
    EXPECT_THAT(DefaultRouteInterfaces(std::string(kHead) +
                                       "wlan0\t00000000\t0102A8C0\t0003\t0\t0\t600\t00000000\t0\t0\t0\n"
                                       "eth0\t00000000\t0102A8C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n"
                                       "tun0\t00000000\t0102A8C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n"),
                ElementsAre("eth0", "tun0", "wlan0"));
}

TEST(DefaultRouteTest, PassesOverOtherRoutes) {
    EXPECT_THAT(DefaultRouteInterfaces(std::string(kHead) +
                                       "lan0\t0002A8C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n"
                                       "half0\t00000000\t00000000\t0001\t0\t0\t0\t00000080\t0\t0\t0\n"
                                       "down0\t00000000\t0102A8C0\t0002\t0\t0\t0\t00000000\t0\t0\t0\n"
                                       "reject0\t00000000\t00000000\t0201\t0\t0\t0\t00000000\t0\t0\t0\n"
                                       "eth0\t00000000\t0102A8C0\t0003\t0\t0\t700\t00000000\t0\t0\t0\n"),
                ElementsAre("eth0"));
}

TEST(DefaultRouteTest, IsEmptyWithoutOne) {
    EXPECT_THAT(DefaultRouteInterfaces(""), IsEmpty());
    EXPECT_THAT(DefaultRouteInterfaces(kHead), IsEmpty());
    EXPECT_THAT(DefaultRouteInterfaces("eth0\t00000000\n"), IsEmpty());
    EXPECT_THAT(DefaultRouteInterfaces("eth0 00000000 0 zz 0 0 0 00000000\n"), IsEmpty());
    EXPECT_THAT(DefaultRouteInterfaces("eth0 00000000 0 0003 0 0 -1 00000000\n"), IsEmpty());
}

const std::string kAny(32, '0');

std::string V6Line(const std::string& interface, const std::string& metric, const std::string& flags,
                   const std::string& length = "00") {
    return kAny + " " + length + " " + kAny + " 00 fe80000000000000000000000000" + "0001 " + metric +
           " 00000001 00000000 " + flags + " " + interface + "\n";
}

TEST(DefaultRouteV6Test, TheLowestMetricComesFirstAndTheLoopNever) {
    EXPECT_THAT(DefaultRouteInterfacesV6(
                    V6Line("wlan0", "00000400", "00450003") + V6Line("eth0", "00000064", "00450003") +
                    V6Line("part0", "00000001", "00450003", "40") +
                    V6Line("reject0", "00000001", "00200201") + V6Line("lo", "00000000", "00200001")),
                ElementsAre("eth0", "wlan0"));
    EXPECT_THAT(DefaultRouteInterfacesV6(V6Line("lo", "ffffffff", "00200200")), IsEmpty());
    EXPECT_THAT(DefaultRouteInterfacesV6(""), IsEmpty());
}

TEST(FormatMACAddressTest, IsTwelveUpperCaseDigits) {
    EXPECT_EQ(FormatMACAddress("0a:1b:2c:3d:4e:ff\n"), "0A1B2C3D4EFF");
    EXPECT_EQ(FormatMACAddress("00:00:00:00:00:00"), "000000000000");
}

TEST(FormatMACAddressTest, TakesTheFirstSixBytesOfALongerAddress) {
    EXPECT_EQ(FormatMACAddress("80:00:02:08:fe:80:00:00:00:00"), "80000208FE80");
}

TEST(FormatMACAddressTest, IsZerosForAnythingElse) {
    for (const auto* text :
         {"", "\n", "0a", "0a:1b:2c:3d:4e", "0a:1b:2c:3d:4e:", "0g:1b:2c:3d:4e:ff", "hello world 12345"})
        EXPECT_EQ(FormatMACAddress(text), "000000000000") << text;
}

TEST(FormatOSNameTest, IsNameVersionAndMachine) {
    EXPECT_EQ(FormatOSName("NAME=\"Debian GNU/Linux\"\nVERSION_ID=\"12\"\n", "x86_64"),
              "Debian GNU/Linux 12 (x86_64)");
}

TEST(FormatOSNameTest, MarksAnUnknownMachine) {
    EXPECT_EQ(FormatOSName("NAME=Fedora\nVERSION_ID=41\n", ""), "Fedora 41 (?)");
}

TEST(FormatOSNameTest, IsNeverEmpty) {
    EXPECT_EQ(FormatOSName("", ""), "Linux (?)");
    EXPECT_EQ(FormatOSName("", "aarch64"), "Linux (aarch64)");
    EXPECT_EQ(FormatOSName("NAME=\"\"\nVERSION_ID=\"\"\n", "aarch64"), "Linux (aarch64)");
    EXPECT_EQ(FormatOSName("NAME=\"Arch Linux\"\n", "x86_64"), "Arch Linux (x86_64)");
}

TEST(StripDeletedMarkTest, RemovesTheMarkOfAReplacedFileAtTheEnd) {
    EXPECT_EQ(cmn::StripDeletedMark("/usr/bin/x (deleted)"), "/usr/bin/x");
    EXPECT_EQ(cmn::StripDeletedMark("/usr/bin/x"), "/usr/bin/x");
    EXPECT_EQ(cmn::StripDeletedMark("/a (deleted)/x"), "/a (deleted)/x");
    EXPECT_EQ(cmn::StripDeletedMark(""), "");
}

}  // namespace
