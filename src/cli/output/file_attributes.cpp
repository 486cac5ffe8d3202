#include "cli/output/file_attributes.h"

#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "cli/terminal/console.h"

namespace cardcert::cli {

namespace {

constexpr char kAccessList[] = "system.posix_acl_access";

// What belongs to the content of a file, so that writing to the file removes or replaces it.
bool BelongsToContent(std::string_view name) {
  return name == "security.capability" || name == "security.ima" || name == "security.evm";
}

// Calls `read` for the length first, then for the bytes, until they fit: somebody may add to an
// attribute in between.
template <typename Read>
std::optional<std::string> ReadGrowing(const Read& read) {
  std::string buffer;
  for (;;) {
    const ssize_t needed = read(nullptr, 0);
    if (needed < 0)
      return std::nullopt;
    buffer.resize(static_cast<std::size_t>(needed) + 1);
    const ssize_t length = read(buffer.data(), buffer.size());
    if (length >= 0) {
      buffer.resize(static_cast<std::size_t>(length));
      return buffer;
    }
    if (errno != ERANGE)
      return std::nullopt;
  }
}

std::optional<std::string> ReadAttribute(int file, const std::string& name) {
  return ReadGrowing(
      [&](char* value, std::size_t size) { return fgetxattr(file, name.c_str(), value, size); });
}

// Returns the names, and none where the file system has no extended attributes.
std::optional<std::vector<std::string>> ListAttributes(int file) {
  const std::optional<std::string> list =
      ReadGrowing([file](char* names, std::size_t size) { return flistxattr(file, names, size); });
  if (!list && errno != ENOTSUP)
    return std::nullopt;
  std::vector<std::string> names;
  std::string_view rest = list ? std::string_view(*list) : std::string_view();
  while (!rest.empty()) {
    names.emplace_back(rest.substr(0, rest.find('\0')));
    rest.remove_prefix(std::min(names.back().size() + 1, rest.size()));
  }
  return names;
}

bool Fail(const std::string& what, FileProblem* problem) {
  *problem = {what + " cannot be kept: " + std::strerror(errno),
              "remove the file first, or write to another one"};
  return false;
}

std::string AttributeText(const std::string& name) {
  return name == kAccessList ? "its access control list" : "its extended attribute " + Quoted(name);
}

// Removes the list that the file got from its folder.
bool RemoveAccessList(int file) {
  return fremovexattr(file, kAccessList) == 0 || errno == ENODATA || errno == ENOTSUP;
}

}  // namespace

std::optional<FileAttributes> FileAttributes::Of(int file, FileProblem* problem) {
  FileAttributes attributes;
  if (fstat(file, &attributes.info_) != 0) {
    *problem = FileProblem::OfError(errno);
    return std::nullopt;
  }
  const std::optional<std::vector<std::string>> names = ListAttributes(file);
  if (!names) {
    Fail("its list of extended attributes", problem);
    return std::nullopt;
  }
  for (const std::string& name : *names) {
    if (BelongsToContent(name))
      continue;
    std::optional<std::string> value = ReadAttribute(file, name);
    if (value) {
      attributes.extended_.push_back({name, std::move(*value)});
    } else if (errno != ENODATA) {  // Removed since it was listed.
      Fail(AttributeText(name), problem);
      return std::nullopt;
    }
  }
  return attributes;
}

bool FileAttributes::ApplyTo(int new_file, FileProblem* problem) const {
  struct stat now = {};
  if (fstat(new_file, &now) != 0)
    return Fail("its owner", problem);
  // First of all: permissions of a group must not be given to the wrong one, even for a moment.
  if (now.st_uid != info_.st_uid && fchown(new_file, info_.st_uid, info_.st_gid) != 0)
    return Fail("its owner, user " + std::to_string(info_.st_uid) + ",", problem);
  if (now.st_gid != info_.st_gid && fchown(new_file, info_.st_uid, info_.st_gid) != 0)
    return Fail("its group, number " + std::to_string(info_.st_gid) + ",", problem);
  if (!RemoveAccessList(new_file))
    return Fail("its permissions", problem);
  for (const ExtendedAttribute& attribute : extended_) {
    // Security modules label a new file themselves, and may not let its owner do so.
    if (ReadAttribute(new_file, attribute.name) == attribute.value)
      continue;
    if (fsetxattr(new_file, attribute.name.c_str(), attribute.value.data(), attribute.value.size(),
                  0) != 0)
      return Fail(AttributeText(attribute.name), problem);
  }
  // With an access control list the group's bits are its mask, and stay what the list says.
  if (fchmod(new_file, info_.st_mode & 0777) != 0)
    return Fail("its permissions", problem);
  return true;
}

}  // namespace cardcert::cli
