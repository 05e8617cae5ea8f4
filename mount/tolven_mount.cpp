// tolven-mount: an archive as a read-only file system, over the library's index. docs/tolven-mount.1 tells
// how it is used.

#define FUSE_USE_VERSION 31

#include <fcntl.h>
#include <fuse.h>
#include <sys/stat.h>
#include <tolven/archive.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "mount/tree.h"

namespace {

using tolven_mount::Node;
using tolven_mount::Tree;

struct FreeArchive {
  void operator()(tolven_archive* archive) const { tolven_free(archive); }
};

// Of the one archive of the process, set before the kernel asks for anything.
struct Mount {
  std::unique_ptr<tolven_archive, FreeArchive> archive;
  Tree tree;
  bool verified = false;
  int descriptor = -1;
  struct stat status {};  // of the archive when it was opened
};

Mount& TheMount() {
  return *static_cast<Mount*>(fuse_get_context()->private_data);
}

// What was found by its index, and checked, is what is read: an archive that changes meanwhile is none.
bool IsUnchanged(const Mount& mount) {
  struct stat now {};
  const struct stat& then = mount.status;
  return fstat(mount.descriptor, &now) == 0 && now.st_size == then.st_size &&
         now.st_mtim.tv_sec == then.st_mtim.tv_sec && now.st_mtim.tv_nsec == then.st_mtim.tv_nsec &&
         now.st_ctim.tv_sec == then.st_ctim.tv_sec && now.st_ctim.tv_nsec == then.st_ctim.tv_nsec;
}

// True when bytes of the file may be given out. Two threads may both check: they come to the same.
bool IsGood(const Mount& mount, Node& node) {
  if (!mount.verified) return true;
  Node::Checked checked = node.checked;
  if (checked == Node::Checked::kNo) {
    const bool good = tolven_entry_check(&node.entry) == TOLVEN_OK && IsUnchanged(mount);
    node.checked = checked = good ? Node::Checked::kGood : Node::Checked::kBad;
  }
  return checked == Node::Checked::kGood;
}

void Describe(const Mount& mount, const Node& node, struct stat& status) {
  status = {};
  const tolven_entry& entry = node.entry;
  status.st_uid = getuid();
  status.st_gid = getgid();
  status.st_nlink = node.IsDirectory() ? 2 : 1;
  status.st_mtime = status.st_ctime = status.st_atime = entry.mtime;
  switch (entry.type) {
    case 0:
      status.st_mode = S_IFDIR | 0755;
      status.st_mtime = status.st_ctime = status.st_atime = mount.status.st_mtime;
      break;
    case TOLVEN_DIRECTORY:
      status.st_mode = S_IFDIR | entry.mode;
      break;
    case TOLVEN_LINK:
      status.st_mode = S_IFLNK | 0777;
      status.st_size = static_cast<off_t>(entry.target_size);
      break;
    default:
      status.st_mode = S_IFREG | entry.mode;
      status.st_size = static_cast<off_t>(std::min<std::uint64_t>(entry.size, INT64_MAX));
      status.st_blocks = status.st_size / 512 + (status.st_size % 512 != 0 ? 1 : 0);
  }
}

void* Init(fuse_conn_info*, fuse_config* config) {
  constexpr double kForEver = 86400;
  config->kernel_cache = 1;
  config->attr_timeout = config->entry_timeout = config->negative_timeout = kForEver;
  return fuse_get_context()->private_data;
}

int GetAttributes(const char* path, struct stat* status, fuse_file_info*) {
  Mount& mount = TheMount();
  const Node* node = mount.tree.Find(path);
  if (node == nullptr) return -ENOENT;
  Describe(mount, *node, *status);
  return 0;
}

int ReadLink(const char* path, char* buffer, std::size_t size) {
  const Node* node = TheMount().tree.Find(path);
  if (node == nullptr) return -ENOENT;
  if (node->entry.type != TOLVEN_LINK || size == 0) return -EINVAL;
  const std::size_t count = std::min<std::size_t>(node->entry.target_size, size - 1);
  if (count > 0) std::memcpy(buffer, node->entry.target, count);
  buffer[count] = '\0';
  return 0;
}

int ReadDirectory(const char* path, void* buffer, fuse_fill_dir_t fill, off_t, fuse_file_info*,
                  fuse_readdir_flags) {
  const Node* node = TheMount().tree.Find(path);
  if (node == nullptr) return -ENOENT;
  if (!node->IsDirectory()) return -ENOTDIR;
  for (const char* own : {".", ".."}) fill(buffer, own, nullptr, 0, static_cast<fuse_fill_dir_flags>(0));
  for (const auto& [name, child] : node->children) {
    const std::string text(name);
    if (fill(buffer, text.c_str(), nullptr, 0, static_cast<fuse_fill_dir_flags>(0)) != 0) return -ENOMEM;
  }
  return 0;
}

int OpenFile(const char* path, fuse_file_info* info) {
  Node* node = TheMount().tree.Find(path);
  if (node == nullptr) return -ENOENT;
  if ((info->flags & O_ACCMODE) != O_RDONLY) return -EROFS;
  info->fh = reinterpret_cast<std::uintptr_t>(node);
  return 0;
}

int ReadFile(const char*, char* buffer, std::size_t size, off_t offset, fuse_file_info* info) {
  const Mount& mount = TheMount();
  Node& node = *reinterpret_cast<Node*>(static_cast<std::uintptr_t>(info->fh));
  if (offset < 0) return -EINVAL;
  if (!IsGood(mount, node)) return -EIO;
  const std::int64_t count = tolven_entry_pread(&node.entry, buffer, std::min<std::size_t>(size, INT32_MAX),
                                                static_cast<std::uint64_t>(offset));
  if (count < 0 || !IsUnchanged(mount)) return -EIO;
  return static_cast<int>(count);
}

struct Options {
  int verify;
  char* trust;
  char* library;
  int help;
  int version;
  std::string* archive;
};

constexpr fuse_opt Option(const char* text, std::size_t offset, int value) {
  return {text, offset, value};
}
const fuse_opt kOptions[] = {
    Option("verify", offsetof(Options, verify), 1),      Option("trust=%s", offsetof(Options, trust), 0),
    Option("library=%s", offsetof(Options, library), 0), Option("-h", offsetof(Options, help), 1),
    Option("--help", offsetof(Options, help), 1),        Option("-V", offsetof(Options, version), 1),
    Option("--version", offsetof(Options, version), 1),  {nullptr, 0, 0},
};

// The first name is the archive, what follows is for the library.
int TakeArgument(void* data, const char* argument, int key, fuse_args*) {
  std::string& archive = *static_cast<Options*>(data)->archive;
  if (key != FUSE_OPT_KEY_NONOPT || !archive.empty()) return 1;
  archive = argument;
  return 0;
}

void Usage(std::FILE* to) {
  std::fputs(
      "usage: tolven-mount [-f] [-o verify,trust=FILE,library=FILE,...] ARCHIVE DIRECTORY\n"
      "\n"
      "Mounts an archive read-only; \"fusermount3 -u DIRECTORY\" ends it.\n"
      "\n"
      "  -f               stay in the foreground\n"
      "  -o verify        check the signature first, and each file before its first byte\n"
      "  -o trust=FILE    by these certificates, as TOLVEN -key takes them\n"
      "  -o library=FILE  the cryptographic library\n"
      "  -o OPTION        any other is for fuse(8)\n"
      "  -h, --help, -V, --version\n",
      to);
}

int Fail(const Mount& mount, const std::string& archive) {
  std::fprintf(stderr, "tolven-mount: %s: %s\n", archive.c_str(), tolven_error_text(mount.archive.get()));
  return 1;
}

int Run(fuse_args& arguments, const Options& options) {
  Mount mount;
  mount.archive.reset(tolven_new(nullptr));
  if (!mount.archive) return 2;
  mount.descriptor = open(options.archive->c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (mount.descriptor < 0 || fstat(mount.descriptor, &mount.status) != 0) {
    std::fprintf(stderr, "tolven-mount: %s: %s\n", options.archive->c_str(), std::strerror(errno));
    return 1;
  }
  tolven_archive* archive = mount.archive.get();
  if (tolven_open_descriptor(archive, mount.descriptor) != TOLVEN_OK) return Fail(mount, *options.archive);
  if (options.verify != 0) {
    tolven_trust trust{};
    trust.struct_size = sizeof trust;
    trust.file = options.trust;
    trust.library = options.library;
    if (tolven_verify(archive, &trust, 0, nullptr) != TOLVEN_OK) return Fail(mount, *options.archive);
    mount.verified = true;
  }
  if (!mount.tree.Build(archive)) return Fail(mount, *options.archive);
  if (!IsUnchanged(mount)) {
    std::fprintf(stderr, "tolven-mount: %s: changed while it was read\n", options.archive->c_str());
    return 1;
  }
  fuse_operations operations{};
  operations.init = Init;
  operations.getattr = GetAttributes;
  operations.readlink = ReadLink;
  operations.readdir = ReadDirectory;
  operations.open = OpenFile;
  operations.read = ReadFile;
  return fuse_main(arguments.argc, arguments.argv, &operations, &mount);
}

}  // namespace

int main(int argc, char** argv) {
  std::string archive;
  Options options{};
  options.archive = &archive;
  fuse_args arguments = FUSE_ARGS_INIT(argc, argv);
  if (fuse_opt_parse(&arguments, &options, kOptions, TakeArgument) != 0) return 2;
  int code = 0;
  if (options.help != 0) {
    Usage(stdout);
  } else if (options.version != 0) {
    std::printf("tolven-mount %s\n", tolven_version());
  } else if (archive.empty() ||
             ((options.trust != nullptr || options.library != nullptr) && options.verify == 0)) {
    Usage(stderr);
    code = 2;
  } else if (fuse_opt_add_arg(&arguments, "-oro,nosuid,nodev,default_permissions,subtype=tolven") != 0) {
    code = 2;
  } else {
    code = Run(arguments, options);
  }
  fuse_opt_free_args(&arguments);
  std::free(options.trust);
  std::free(options.library);
  return code;
}
