#include "files/fingerprint.h"

#include <string>

#include "files/failure.h"
#include "files/read_blocks.h"
#include "files/status.h"
#include "files/unique_stream.h"
#include "platform/streams.h"
#include "text/fnv1a.h"

namespace tolvarine::updater {
namespace {

bool HasFingerprint(const Path& path, std::uint64_t size, std::uint64_t fnv1a) {
  const FileStatus status = QueryStatus(path);
  if (status.kind != FileKind::regular || status.error != 0) return false;
  const FileSize actual = QueryFileSize(path);
  if (actual.error != 0 || actual.size != size) return false;
  return Fnv1aOfFile(path) == fnv1a;
}

}  // namespace

std::uint64_t Fnv1aOfFile(const Path& path) {
  const UniqueStream stream = OpenStream(path, u"rb");
  if (!stream) ThrowAboutPath("Could not open file for hashing: ", path);
  std::uint64_t hash = kFnv1aOffsetBasis;
  ReadBlocks(stream.get(), [&](std::string_view block) { hash = Fnv1a64(block, hash); });
  if (platform::ferror(stream.get()) != 0) ThrowAboutPath("Could not hash file: ", path);
  return hash;
}

void VerifyFileFingerprint(const Path& path, std::uint64_t size, std::uint64_t fnv1a,
                           std::string_view label) {
  if (HasFingerprint(path, size, fnv1a)) return;
  ThrowAboutPath(std::string(label) + " failed verification: ", path);
}

}  // namespace tolvarine::updater
