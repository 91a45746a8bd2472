#include "classifier/capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <variant>
#include <vector>

#include "tests/support/frame_builder.h"

namespace {

using support::Bytes;
using support::FrameBuilder;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::uint32_t ethernet = 1;
constexpr std::uint32_t rawIp = 101;

/// Appends numbers to a file's bytes in either byte order.
class FileBuilder {
 public:
  explicit FileBuilder(bool bigEndian = false) : bigEndian_(bigEndian) {}

  FileBuilder& u16(std::uint32_t value) { return number(value, 2); }
  FileBuilder& u32(std::uint32_t value) { return number(value, 4); }
  FileBuilder& bytes(const Bytes& more) {
    bytes_.insert(bytes_.end(), more.begin(), more.end());
    return *this;
  }
  FileBuilder& cut(std::size_t missing) {
    bytes_.resize(bytes_.size() - missing);
    return *this;
  }
  const Bytes& content() const { return bytes_; }

 private:
  FileBuilder& number(std::uint32_t value, unsigned size) {
    for (unsigned i = 0; i < size; ++i) {
      const unsigned shift = 8 * (bigEndian_ ? size - 1 - i : i);
      bytes_.push_back(static_cast<std::uint8_t>(value >> shift));
    }
    return *this;
  }

  bool bigEndian_;
  Bytes bytes_;
};

FileBuilder pcap(const std::vector<Bytes>& frames, std::uint32_t linkType = ethernet,
                 bool bigEndian = false) {
  FileBuilder file(bigEndian);
  file.u32(0xa1b2c3d4).u16(2).u16(4).u32(0).u32(0).u32(65535).u32(linkType);
  for (const Bytes& frame : frames) {
    const auto size = static_cast<std::uint32_t>(frame.size());
    file.u32(1).u32(2).u32(size).u32(size).bytes(frame);
  }
  return file;
}

/// Section header, interface description and one enhanced packet block per frame.
FileBuilder pcapng(const std::vector<Bytes>& frames, std::uint32_t linkType = ethernet) {
  FileBuilder file;
  file.u32(0x0a0d0d0a).u32(28).u32(0x1a2b3c4d).u16(1).u16(0).u32(0xffffffff).u32(0xffffffff);
  file.u32(28);
  file.u32(1).u32(20).u16(linkType).u16(0).u32(65535).u32(20);
  for (const Bytes& frame : frames) {
    const auto size = static_cast<std::uint32_t>(frame.size());
    const std::uint32_t padding = (4 - size % 4) % 4;
    const std::uint32_t length = 32 + size + padding;
    file.u32(6).u32(length).u32(0).u32(0).u32(0).u32(size).u32(size);
    file.bytes(frame).bytes(Bytes(padding)).u32(length);
  }
  return file;
}

class Capture : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "capture-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  std::string write(const std::string& name, const Bytes& content) const {
    std::ofstream file(folder / name, std::ios::binary);
    for (const std::uint8_t byte : content) file.put(static_cast<char>(byte));
    return folder / name;
  }

  static std::string openError(const std::string& path) {
    auto opened = capture::Reader::open(path);
    const auto* error = std::get_if<capture::Error>(&opened);
    return error != nullptr ? error->text : "";
  }

  struct Contents {
    std::vector<Bytes> frames;
    std::string error;
  };
  static Contents read(const std::string& path) {
    Contents contents;
    auto opened = capture::Reader::open(path);
    if (const auto* error = std::get_if<capture::Error>(&opened)) {
      ADD_FAILURE() << error->text;
      return contents;
    }
    auto& reader = std::get<capture::Reader>(opened);
    while (const auto frame = reader.next()) {
      EXPECT_EQ(frame->number, contents.frames.size() + 1);
      contents.frames.emplace_back(frame->bytes.begin(), frame->bytes.end());
    }
    if (reader.error() != nullptr) contents.error = reader.error()->text;
    return contents;
  }

  std::filesystem::path folder;
  const Bytes first =
      FrameBuilder().ethernet({1}, {2}).etherType(0x88cc).payload({1, 2, 3}).bytes();
  const Bytes second = FrameBuilder().ethernet({3}, {4}).etherType(0x8809).padTo(60).bytes();
};

TEST_F(Capture, PcapIsReadFrameByFrame) {
  const Contents contents = read(write("a.pcap", pcap({first, second}).content()));
  EXPECT_THAT(contents.frames, ElementsAre(first, second));
  EXPECT_EQ(contents.error, "");
}

TEST_F(Capture, PcapOfTheOtherByteOrderIsRead) {
  const Contents contents = read(write("a.pcap", pcap({first, second}, ethernet, true).content()));
  EXPECT_THAT(contents.frames, ElementsAre(first, second));
}

TEST_F(Capture, PcapngIsReadFrameByFrame) {
  const Contents contents = read(write("a.pcapng", pcapng({first, second}).content()));
  EXPECT_THAT(contents.frames, ElementsAre(first, second));
  EXPECT_EQ(contents.error, "");
}

TEST_F(Capture, FilesWithoutFramesAreCapturesToo) {
  for (const auto& file : {pcap({}), pcapng({})}) {
    const Contents contents = read(write("a", file.content()));
    EXPECT_TRUE(contents.frames.empty());
    EXPECT_EQ(contents.error, "");
  }
}

TEST_F(Capture, FramesMayBeEmpty) {
  EXPECT_THAT(read(write("a", pcap({Bytes(), first}).content())).frames,
              ElementsAre(Bytes(), first));
}

TEST_F(Capture, FramesRecordedInPartAreDeliveredAsFarAsTheyGo) {
  FileBuilder file = pcap({});
  file.u32(1).u32(2).u32(static_cast<std::uint32_t>(first.size())).u32(1500).bytes(first);
  EXPECT_THAT(read(write("a", file.content())).frames, ElementsAre(first));
}

TEST_F(Capture, NothingFollowsTheEnd) {
  auto opened = capture::Reader::open(write("a", pcap({first}).content()));
  auto& reader = std::get<capture::Reader>(opened);
  EXPECT_TRUE(reader.next());
  EXPECT_FALSE(reader.next());
  EXPECT_FALSE(reader.next());
  EXPECT_EQ(reader.error(), nullptr);
}

TEST_F(Capture, TellsHowMuchOfAFileHasBeenRead) {
  constexpr double head = 24;
  const double frame = 16 + static_cast<double>(first.size());
  auto opened = capture::Reader::open(write("a", pcap({first, first}).content()));
  auto& reader = std::get<capture::Reader>(opened);
  EXPECT_TRUE(reader.next());
  EXPECT_EQ(reader.share(), (head + frame) / (head + 2 * frame));
  EXPECT_TRUE(reader.next());
  EXPECT_EQ(reader.share(), 1.0);
}

TEST_F(Capture, CannotTellHowMuchOfAPipeHasBeenRead) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const Bytes content = pcap({first}).content();
  ASSERT_EQ(::write(ends[1], content.data(), content.size()), static_cast<ssize_t>(content.size()));
  close(ends[1]);
  auto opened = capture::Reader::open("/proc/self/fd/" + std::to_string(ends[0]));
  close(ends[0]);
  auto& reader = std::get<capture::Reader>(opened);
  EXPECT_TRUE(reader.next());
  EXPECT_EQ(reader.share(), std::nullopt);
}

TEST_F(Capture, MissingFileIsSaid) {
  EXPECT_EQ(openError(folder / "missing"),
            (folder / "missing").string() + ": No such file or directory");
}

TEST_F(Capture, MinusIsAFileNameLikeAnyOther) {
  EXPECT_EQ(openError("-"), "-: No such file or directory");
}

TEST_F(Capture, FolderIsNoCapture) {
  EXPECT_THAT(openError(folder),
              AllOf(StartsWith(folder.string() + ": "), HasSubstr("cannot be read as a capture")));
}

TEST_F(Capture, UnreadableFileIsSaid) {
  const std::string path = write("a", pcap({first}).content());
  ASSERT_EQ(chmod(path.c_str(), 0), 0);
  // Everything is readable for the super-user.
  constexpr uid_t nobody = 65534;
  const uid_t user = geteuid();
  if (user == 0) {
    ASSERT_EQ(seteuid(nobody), 0);
  }
  const std::string error = openError(path);
  ASSERT_EQ(seteuid(user), 0);
  EXPECT_EQ(error, path + ": Permission denied");
}

TEST_F(Capture, OtherFilesAreNoCaptures) {
  const std::string path = write("a", Bytes(100, 'x'));
  EXPECT_EQ(openError(path), path + ": cannot be read as a capture: unknown file format");
}

TEST_F(Capture, EmptyFileIsNoCapture) {
  EXPECT_THAT(openError(write("a", {})), HasSubstr("cannot be read as a capture"));
}

TEST_F(Capture, FileThatEndsInItsHeaderIsNoCapture) {
  for (const auto& header : {pcap({}), pcapng({})}) {
    for (std::size_t size = 1; size < header.content().size(); ++size) {
      const std::string path =
          write("a", FileBuilder(header).cut(header.content().size() - size).content());
      EXPECT_THAT(openError(path), HasSubstr("cannot be read as a capture")) << size;
    }
  }
}

TEST_F(Capture, OtherLinkTypesAreNamed) {
  for (const auto& file : {pcap({first}, rawIp), pcapng({first}, rawIp)}) {
    const std::string path = write("a", file.content());
    EXPECT_EQ(openError(path), path + ": the link type is RAW, not Ethernet");
  }
}

TEST_F(Capture, LinkTypesWithoutANameAreNumbered) {
  EXPECT_THAT(openError(write("a", pcap({}, 60000).content())), HasSubstr("60000"));
}

TEST_F(Capture, FileThatEndsWithinAFrameDeliversTheFramesBeforeIt) {
  const auto check = [&](const FileBuilder& whole, std::size_t lastRecord) {
    for (std::size_t missing = 1; missing < lastRecord; ++missing) {
      const std::string path = write("a", FileBuilder(whole).cut(missing).content());
      const Contents contents = read(path);
      EXPECT_THAT(contents.frames, ElementsAre(first)) << missing;
      EXPECT_THAT(contents.error, StartsWith(path + ": frame 2: ")) << missing;
    }
  };
  check(pcap({first, second}), 16 + second.size());
  check(pcapng({first, second}), 32 + second.size());
}

TEST_F(Capture, AnErrorStays) {
  auto opened = capture::Reader::open(write("a", pcap({first}).cut(1).content()));
  auto& reader = std::get<capture::Reader>(opened);
  EXPECT_FALSE(reader.next());
  ASSERT_NE(reader.error(), nullptr);
  const std::string text = reader.error()->text;
  EXPECT_THAT(text, HasSubstr("frame 1"));
  EXPECT_FALSE(reader.next());
  EXPECT_EQ(reader.error()->text, text);
}

TEST_F(Capture, ReadersMayBeMovedWhileReading) {
  auto opened = capture::Reader::open(write("a", pcap({first, second}).content()));
  capture::Reader reader = std::move(std::get<capture::Reader>(opened));
  ASSERT_TRUE(reader.next());
  capture::Reader other = std::move(reader);
  const auto frame = other.next();
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->number, 2U);
}

TEST_F(Capture, ClosesItsFile) {
  const auto descriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
  };
  const auto before = descriptors();
  read(write("a", pcap({first}).content()));
  openError(write("b", Bytes(100, 'x')));
  openError(write("c", pcap({}, rawIp).content()));
  EXPECT_EQ(descriptors(), before);
}

}  // namespace
