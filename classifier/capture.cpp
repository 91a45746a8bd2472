#include "classifier/capture.h"

#include <pcap/pcap.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace capture {

namespace {

std::string linkTypeName(int linkType) {
  const char* name = pcap_datalink_val_to_name(linkType);
  return name != nullptr ? name : std::to_string(linkType);
}

}  // namespace

void Reader::Close::operator()(pcap* file) const { pcap_close(file); }

std::variant<Reader, Error> Reader::open(const std::string& path) {
  // Opened here and not by name in the library, to which "-" would be the standard input.
  FILE* stream = std::fopen(path.c_str(), "rbe");
  if (stream == nullptr) return Error{path + ": " + std::strerror(errno)};
  std::array<char, PCAP_ERRBUF_SIZE> reason{};
  File file(pcap_fopen_offline(stream, reason.data()));
  if (!file) {
    static_cast<void>(std::fclose(stream));
    return Error{path + ": cannot be read as a capture: " + reason.data()};
  }
  const int linkType = pcap_datalink(file.get());
  if (linkType != DLT_EN10MB) {
    return Error{path + ": the link type is " + linkTypeName(linkType) + ", not Ethernet"};
  }
  return Reader(path, std::move(file));
}

std::optional<Frame> Reader::next() {
  if (error_) return std::nullopt;
  pcap_pkthdr* header = nullptr;
  const u_char* bytes = nullptr;
  switch (pcap_next_ex(file_.get(), &header, &bytes)) {
    case 1:
      return Frame{.number = ++frames_, .bytes = {bytes, header->caplen}};
    case PCAP_ERROR_BREAK:
      return std::nullopt;
    default:
      error_ =
          Error{path_ + ": frame " + std::to_string(frames_ + 1) + ": " + pcap_geterr(file_.get())};
      return std::nullopt;
  }
}

std::optional<double> Reader::share() const {
  FILE* stream = pcap_file(file_.get());
  struct stat status {};
  if (fstat(fileno(stream), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size == 0) {
    return std::nullopt;
  }
  return static_cast<double>(ftello(stream)) / static_cast<double>(status.st_size);
}

}  // namespace capture
