#include "support/Path.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace ql {

std::string joinPath(std::string_view folder, std::string_view name) {
  std::string out;
  out.reserve(folder.size() + name.size() + 1);
  out.append(folder);
  if (out.empty() || out.back() != '/') out.push_back('/');
  out.append(name);
  return out;
}

std::string addSlash(std::string_view path) {
  std::string out(path);
  if (out.empty() || out.back() != '/') out.push_back('/');
  return out;
}

std::string removeSlash(std::string_view path) {
  if (path == "/") return "/";
  if (!path.empty() && path.back() == '/') path.remove_suffix(1);
  return path.empty() ? std::string("/") : std::string(path);
}

std::string rootText(std::string_view path) {
  if (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return std::string(path);
}

std::string extensionOf(std::string_view name) {
  const auto dot = name.rfind('.');
  if (dot == std::string_view::npos) return {};
  return std::string(name.substr(dot + 1));
}

std::string systemErrorText(int err) {
  char buf[256];
  // GNU strerror_r returns the text, which may or may not live in buf.
  return std::string(strerror_r(err, buf, sizeof buf));
}

std::string xdgDataHome() {
  const char* xdg = std::getenv("XDG_DATA_HOME");
  if (xdg && xdg[0] == '/') return xdg;
  std::string home;
  if (const char* h = std::getenv("HOME"); h && h[0] == '/') {
    home = h;
  } else if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) {
    home = pw->pw_dir;
  }
  return home.empty() ? std::string() : joinPath(home, ".local/share");
}

}  // namespace ql
