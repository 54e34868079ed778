#include "drives/MountTable.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>

namespace ql {

namespace {

std::vector<std::string_view> splitBlanks(std::string_view line) {
  std::vector<std::string_view> out;
  size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && line[i] == ' ') ++i;
    const size_t start = i;
    while (i < line.size() && line[i] != ' ') ++i;
    if (i > start) out.push_back(line.substr(start, i - start));
  }
  return out;
}

bool startsWith(std::string_view s, std::string_view prefix) { return s.substr(0, prefix.size()) == prefix; }

// "/a" holds "/a" and "/a/b"; "/" holds everything absolute.
bool holds(std::string_view outer, std::string_view inner) {
  if (outer == "/") return startsWith(inner, "/");
  while (outer.size() > 1 && outer.back() == '/') outer.remove_suffix(1);
  if (!startsWith(inner, outer)) return false;
  return inner.size() == outer.size() || inner[outer.size()] == '/';
}

std::string readFile(const char* path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// udev writes blanks and other odd bytes of a label as \xHH.
std::string decodeUdevName(std::string_view name) {
  std::string out;
  for (size_t i = 0; i < name.size(); ++i) {
    if (name[i] == '\\' && i + 3 < name.size() && name[i + 1] == 'x' && std::isxdigit(static_cast<unsigned char>(name[i + 2])) &&
        std::isxdigit(static_cast<unsigned char>(name[i + 3]))) {
      out += static_cast<char>(std::stoi(std::string(name.substr(i + 2, 2)), nullptr, 16));
      i += 3;
    } else {
      out += name[i];
    }
  }
  return out;
}

}  // namespace

std::string decodeMountField(std::string_view field) {
  std::string out;
  out.reserve(field.size());
  for (size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size()) {
      const std::string_view code = field.substr(i + 1, 3);
      char c = 0;
      if (code == "040") c = ' ';
      else if (code == "011") c = '\t';
      else if (code == "012") c = '\n';
      else if (code == "134") c = '\\';
      if (c != 0) {
        out += c;
        i += 3;
        continue;
      }
    }
    out += field[i];
  }
  return out;
}

std::vector<MountEntry> parseMountTable(std::string_view text) {
  std::vector<MountEntry> out;
  while (!text.empty()) {
    const size_t nl = text.find('\n');
    const std::string_view line = text.substr(0, nl);
    text = nl == std::string_view::npos ? std::string_view() : text.substr(nl + 1);
    const std::vector<std::string_view> f = splitBlanks(line);
    MountEntry m;
    // mountinfo: id parent major:minor root point options [optional...] - type source super
    const auto dash = std::find(f.begin(), f.end(), std::string_view("-"));
    if (f.size() >= 6 && f[2].find(':') != std::string_view::npos && dash != f.end() && dash - f.begin() >= 6 &&
        f.end() - dash >= 3) {
      const std::string dev(f[2]);
      char* end = nullptr;
      m.major = static_cast<unsigned>(std::strtoul(dev.c_str(), &end, 10));
      if (*end != ':') continue;
      m.minor = static_cast<unsigned>(std::strtoul(end + 1, &end, 10));
      if (*end != '\0') continue;
      m.hasDevice = true;
      m.root = decodeMountField(f[3]);
      m.mountPoint = decodeMountField(f[4]);
      m.fsType = decodeMountField(dash[1]);
      m.source = decodeMountField(dash[2]);
    } else if (f.size() >= 3) {  // mounts: source point type options freq pass
      m.source = decodeMountField(f[0]);
      m.mountPoint = decodeMountField(f[1]);
      m.fsType = decodeMountField(f[2]);
      m.root = "/";
    } else {
      continue;
    }
    if (m.mountPoint.empty() || m.mountPoint[0] != '/') continue;
    out.push_back(std::move(m));
  }
  return out;
}

bool isPseudoMount(const MountEntry& m) {
  static const std::set<std::string, std::less<>> pseudo = {
      "proc",     "sysfs",     "cgroup",  "cgroup2",   "devtmpfs",    "devpts", "mqueue",
      "debugfs",  "tracefs",   "securityfs", "pstore", "bpf",         "configfs", "fusectl",
      "autofs",   "binfmt_misc", "hugetlbfs", "nsfs",  "efivarfs",    "rpc_pipefs", "selinuxfs"};
  if (pseudo.count(m.fsType)) return true;
  // Whatever is mounted inside the kernel's own trees belongs to them.
  if (holds("/proc", m.mountPoint) || holds("/sys", m.mountPoint)) return true;
  if (m.fsType == "squashfs" && holds("/snap", m.mountPoint)) return true;
  if (m.fsType == "overlay") {
    for (const char* store : {"/var/lib/docker", "/var/lib/containers", "/run/containers", "/run/docker",
                              "/var/lib/containerd", "/run/containerd"})
      if (holds(store, m.mountPoint)) return true;
  }
  return false;
}

std::vector<MountEntry> listedMounts(const std::vector<MountEntry>& all) {
  // A later mount on the same point hides the earlier one; the place stays the first one's.
  std::vector<MountEntry> visible;
  for (const MountEntry& m : all) {
    auto same = std::find_if(visible.begin(), visible.end(),
                             [&](const MountEntry& v) { return v.mountPoint == m.mountPoint; });
    if (same != visible.end())
      *same = m;
    else
      visible.push_back(m);
  }
  std::vector<MountEntry> out;
  for (const MountEntry& m : visible) {
    if (isPseudoMount(m)) continue;
    const bool shown = std::any_of(out.begin(), out.end(), [&](const MountEntry& o) {
      if (m.hasDevice && o.hasDevice) return o.major == m.major && o.minor == m.minor && holds(o.root, m.root);
      // Without device numbers only a real device path tells a bind mount apart.
      return !m.hasDevice && !o.hasDevice && startsWith(m.source, "/dev/") && o.source == m.source;
    });
    if (!shown) out.push_back(m);
  }
  // Shown in the order of their paths: "/" first, a mount below its parent.
  std::stable_sort(out.begin(), out.end(),
                   [](const MountEntry& a, const MountEntry& b) { return a.mountPoint < b.mountPoint; });
  return out;
}

std::vector<MountEntry> readMountTable() {
  std::string text = readFile("/proc/self/mountinfo");
  if (text.empty()) text = readFile("/proc/self/mounts");
  return listedMounts(parseMountTable(text));
}

bool isNetworkFileSystem(std::string_view fsType) {
  static const std::set<std::string, std::less<>> network = {
      "nfs", "nfs4",  "cifs",      "smb3",        "smbfs",          "sshfs",         "fuse.sshfs",
      "9p",  "ceph",  "fuse.ceph", "glusterfs",   "fuse.glusterfs", "davfs",         "fuse.davfs",
      "afs", "ncpfs", "lustre",    "fuse.rclone", "fuse.s3fs",      "fuse.curlftpfs"};
  return network.count(fsType) != 0;
}

int driveTypeOf(const MountEntry& m) {
  if (m.fsType == "tmpfs" || m.fsType == "ramfs") return DriveRam;
  if (isNetworkFileSystem(m.fsType)) return DriveNetwork;
  if (m.fsType == "iso9660" || m.fsType == "udf") return DriveOptical;
  if (m.hasDevice && m.major != 0) {
    const std::string link = "/sys/dev/block/" + std::to_string(m.major) + ":" + std::to_string(m.minor);
    char real[PATH_MAX];
    if (realpath(link.c_str(), real)) {
      const std::string dev(real);
      if (dev.find("/usb") != std::string::npos) return DriveRemovable;
      // A partition has its "removable" flag on the disk above it.
      for (const std::string& dir : {dev, dev.substr(0, dev.rfind('/'))}) {
        const std::string flag = readFile((dir + "/removable").c_str());
        if (!flag.empty()) return flag[0] == '1' ? DriveRemovable : DriveLocal;
      }
    }
  }
  return DriveLocal;
}

std::string volumeLabelOf(const MountEntry& m) {
  const bool byNumber = m.hasDevice && m.major != 0;
  if (!byNumber && !startsWith(m.source, "/dev/")) return {};
  DIR* dir = opendir("/dev/disk/by-label");
  if (!dir) return {};
  std::string label;
  char sourceReal[PATH_MAX];
  const bool haveSource = !byNumber && realpath(m.source.c_str(), sourceReal);
  while (dirent* e = readdir(dir)) {
    if (e->d_name[0] == '.') continue;
    const std::string link = std::string("/dev/disk/by-label/") + e->d_name;
    bool match = false;
    if (byNumber) {
      struct stat st {};
      match = stat(link.c_str(), &st) == 0 && S_ISBLK(st.st_mode) && ::major(st.st_rdev) == m.major &&
              ::minor(st.st_rdev) == m.minor;
    } else if (haveSource) {
      char real[PATH_MAX];
      match = realpath(link.c_str(), real) && std::string(real) == sourceReal;
    }
    if (match) {
      label = decodeUdevName(e->d_name);
      break;
    }
  }
  closedir(dir);
  return label;
}

std::string mountOf(const std::vector<std::string>& mountPoints, std::string_view path) {
  std::string best;
  bool found = false;
  for (const std::string& p : mountPoints) {
    if (!holds(p, path)) continue;
    const size_t len = p == "/" ? 0 : p.size() - (p.back() == '/' ? 1 : 0);
    const size_t bestLen = best == "/" ? 0 : best.size() - (!best.empty() && best.back() == '/' ? 1 : 0);
    if (!found || len > bestLen) {
      best = p;
      found = true;
    }
  }
  return best;
}

}  // namespace ql
