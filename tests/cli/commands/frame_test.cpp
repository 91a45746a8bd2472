#include "cli/commands/frame.h"

#include <gtest/gtest.h>

#include "cli/failure.h"
#include "tests/support/frame_builder.h"

namespace cli {
namespace {

using support::FrameBuilder;

constexpr support::Mac bridgeGroup{0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e};
constexpr support::Mac station{0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
constexpr std::array<std::uint8_t, 3> cdpOui{0x00, 0x00, 0x0c};

FrameBuilder frame() { return FrameBuilder().ethernet(bridgeGroup, station); }

std::string shown(const FrameBuilder& builder) {
  const FrameText text = frameText(builder.bytes());
  return text.destination + " | " + (text.vlan ? std::to_string(*text.vlan) : "-") + " | " +
         text.type;
}

TEST(Frame, UntaggedIsShownWithItsEtherType) {
  EXPECT_EQ(shown(frame().etherType(0x88cc)), "01:80:c2:00:00:0e | - | 0x88cc LLDP");
  EXPECT_EQ(shown(frame().etherType(0x0600)), "01:80:c2:00:00:0e | - | 0x0600");
}

TEST(Frame, TaggedIsShownWithItsOuterVlanAndTheTypeBehindAllTags) {
  EXPECT_EQ(shown(frame().tag(0x8100, 100, 0xf).etherType(0x8902)),
            "01:80:c2:00:00:0e | 100 | 0x8902 CFM");
  EXPECT_EQ(shown(frame().tag(0x88a8, 200).tag(0x8100, 100).etherType(0x0806)),
            "01:80:c2:00:00:0e | 200 | 0x0806 ARP");
  EXPECT_EQ(shown(frame().tag(0x8100, 0).etherType(0x0800)), "01:80:c2:00:00:0e | 0 | 0x0800 IPv4");
}

TEST(Frame, OfSlowProtocolsIsNamedByItsSubtype) {
  EXPECT_EQ(shown(frame().etherType(0x8809).payload({1})), "01:80:c2:00:00:0e | - | 0x8809 LACP");
  EXPECT_EQ(shown(frame().etherType(0x8809).payload({2})), "01:80:c2:00:00:0e | - | 0x8809 LAMP");
  EXPECT_EQ(shown(frame().etherType(0x8809).payload({3})), "01:80:c2:00:00:0e | - | 0x8809 OAM");
  EXPECT_EQ(shown(frame().etherType(0x8809).payload({9})), "01:80:c2:00:00:0e | - | 0x8809");
  EXPECT_EQ(shown(frame().etherType(0x8809)), "01:80:c2:00:00:0e | - | 0x8809");
}

TEST(Frame, WithSnapIsShownWithItsProtocolId) {
  EXPECT_EQ(shown(frame().length(10).snap(cdpOui, 0x2000)),
            "01:80:c2:00:00:0e | - | SNAP 0x2000 CDP");
  EXPECT_EQ(shown(frame().tag(0x8100, 7).length(10).snap(cdpOui, 0x0111)),
            "01:80:c2:00:00:0e | 7 | SNAP 0x0111 UDLD");
  EXPECT_EQ(shown(frame().length(10).snap(cdpOui, 0x1234)), "01:80:c2:00:00:0e | - | SNAP 0x1234");
  EXPECT_EQ(shown(frame().length(3).llc(0xaa, 0xaa, 3)), "01:80:c2:00:00:0e | - | SNAP");
}

TEST(Frame, WithLlcIsShownWithItsServiceAccessPoint) {
  EXPECT_EQ(shown(frame().length(38).llc(0x42, 0x42, 3).payload({0, 0})),
            "01:80:c2:00:00:0e | - | LLC 42 STP");
  EXPECT_EQ(shown(frame().length(38).llc(0x42, 0x42, 3).payload({0, 1})),
            "01:80:c2:00:00:0e | - | LLC 42 GARP");
  EXPECT_EQ(shown(frame().length(38).llc(0x42, 0x42, 3)), "01:80:c2:00:00:0e | - | LLC 42");
  EXPECT_EQ(shown(frame().length(38).llc(0x06, 0x06, 3)), "01:80:c2:00:00:0e | - | LLC 06");
  EXPECT_EQ(shown(frame().length(0)), "01:80:c2:00:00:0e | - | LLC");
}

TEST(Frame, CutAnywhereIsShownAsFarAsItGoes) {
  const auto cut = [](std::size_t size) {
    return shown(frame().tag(0x8100, 100).tag(0x8100, 5).etherType(0x88cc).cutTo(size));
  };
  for (std::size_t size = 0; size < 6; ++size) EXPECT_EQ(cut(size), "- | - | -") << size;
  for (std::size_t size = 6; size < 16; ++size) {
    EXPECT_EQ(cut(size), "01:80:c2:00:00:0e | - | -") << size;
  }
  for (std::size_t size = 16; size < 22; ++size) {
    EXPECT_EQ(cut(size), "01:80:c2:00:00:0e | 100 | -") << size;
  }
  EXPECT_EQ(cut(22), "01:80:c2:00:00:0e | 100 | 0x88cc LLDP");
}

// ---- From hexadecimal ----

using support::Bytes;

TEST(FrameInHexadecimal, IsTakenHoweverItsBytesAreSeparated) {
  const Bytes bytes{0x01, 0x80, 0xc2, 0xAB, 0xff};
  EXPECT_EQ(parseFrame("0180c2abff"), bytes);
  EXPECT_EQ(parseFrame("0180 C2AB FF"), bytes);
  EXPECT_EQ(parseFrame("01:80:c2:ab:ff"), bytes);
  EXPECT_EQ(parseFrame(" 0180.c2ab-ff\n"), bytes);
  EXPECT_EQ(parseFrame(""), Bytes());
}

TEST(FrameInHexadecimal, IsNotTakenWithAnythingElse) {
  const auto refusal = [](std::string_view text) -> std::string {
    try {
      parseFrame(text);
    } catch (const UsageError& error) {
      return error.what();
    }
    return "taken";
  };
  EXPECT_EQ(refusal("01 8"),
            "\"8\" stands where byte 2 of the frame should, two hexadecimal digits");
  EXPECT_EQ(refusal("0x01"),
            "\"0x\" stands where byte 1 of the frame should, two hexadecimal digits");
  EXPECT_EQ(refusal("018 0"),
            "\"8 \" stands where byte 2 of the frame should, two hexadecimal digits");
  EXPECT_EQ(refusal("01g0"),
            "\"g0\" stands where byte 2 of the frame should, two hexadecimal digits");
}

}  // namespace
}  // namespace cli
