#include "treemap/FileKind.h"

#include <algorithm>
#include <array>

namespace ql {

namespace {
struct KindOf {
  std::string_view extension;
  FileKind kind;
};
using K = FileKind;
// Sorted by extension, for a binary search.
constexpr std::array kKinds = std::to_array<KindOf>({
    {"3gp", K::Video},    {"7z", K::Archive},    {"a", K::Program},        {"aac", K::Audio},
    {"aiff", K::Audio},   {"apk", K::Archive},   {"appimage", K::Program}, {"avi", K::Video},
    {"avif", K::Picture}, {"bin", K::Program},   {"bmp", K::Picture},      {"bz2", K::Archive},
    {"c", K::Code},       {"cc", K::Code},       {"cpp", K::Code},         {"cs", K::Code},
    {"css", K::Code},     {"csv", K::Document},  {"cxx", K::Code},         {"deb", K::Archive},
    {"dll", K::Program},  {"doc", K::Document},  {"docx", K::Document},    {"epub", K::Document},
    {"exe", K::Program},  {"flac", K::Audio},    {"gif", K::Picture},      {"go", K::Code},
    {"gz", K::Archive},   {"h", K::Code},        {"heic", K::Picture},     {"hpp", K::Code},
    {"htm", K::Document}, {"html", K::Document}, {"ico", K::Picture},      {"iso", K::Archive},
    {"jar", K::Archive},  {"java", K::Code},     {"jpeg", K::Picture},     {"jpg", K::Picture},
    {"js", K::Code},      {"json", K::Code},     {"kt", K::Code},          {"log", K::Document},
    {"m4a", K::Audio},    {"m4v", K::Video},     {"md", K::Document},      {"mid", K::Audio},
    {"mkv", K::Video},    {"mov", K::Video},     {"mp3", K::Audio},        {"mp4", K::Video},
    {"mpeg", K::Video},   {"mpg", K::Video},     {"o", K::Program},        {"odp", K::Document},
    {"ods", K::Document}, {"odt", K::Document},  {"ogg", K::Audio},        {"opus", K::Audio},
    {"pdf", K::Document}, {"php", K::Code},      {"pl", K::Code},          {"png", K::Picture},
    {"ppt", K::Document}, {"pptx", K::Document}, {"ps", K::Document},      {"psd", K::Picture},
    {"py", K::Code},      {"rar", K::Archive},   {"rb", K::Code},          {"rpm", K::Archive},
    {"rs", K::Code},      {"rtf", K::Document},  {"sh", K::Code},          {"so", K::Program},
    {"svg", K::Picture},  {"tar", K::Archive},   {"tex", K::Document},     {"tgz", K::Archive},
    {"tif", K::Picture},  {"tiff", K::Picture},  {"ts", K::Code},          {"txt", K::Document},
    {"wav", K::Audio},    {"webm", K::Video},    {"webp", K::Picture},     {"wma", K::Audio},
    {"wmv", K::Video},    {"xcf", K::Picture},   {"xls", K::Document},     {"xlsx", K::Document},
    {"xml", K::Code},     {"xz", K::Archive},    {"yaml", K::Code},        {"zip", K::Archive},
    {"zst", K::Archive},
});
static_assert(std::is_sorted(kKinds.begin(), kKinds.end(), [](const KindOf& a, const KindOf& b) {
  return a.extension < b.extension;
}));
}  // namespace

std::string_view typeExtension(std::string_view name) {
  const size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return {};
  return name.substr(dot + 1);
}

size_t lowerExtension(std::string_view extension, char* out, size_t size) {
  const size_t n = std::min(extension.size(), size);
  for (size_t i = 0; i < n; ++i) {
    const char c = extension[i];
    out[i] = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return n;
}

FileKind kindOfExtension(std::string_view extension) {
  const auto it =
      std::lower_bound(kKinds.begin(), kKinds.end(), extension,
                       [](const KindOf& k, std::string_view e) { return k.extension < e; });
  return it != kKinds.end() && it->extension == extension ? it->kind : FileKind::Other;
}

}  // namespace ql
