// Reading a file from its current position to its end, in blocks.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/files.h"
#include "platform/handles.h"
#include "platform/streams.h"

namespace tolvarine::updater {

inline constexpr std::uint32_t kReadBlockSize = 65536;  // In bytes.

// The code of a failure; nothing on success. The code itself may be 0.
using FailureCode = std::optional<std::uint32_t>;

// Passes each block of an open file to `use`, which takes a std::string_view and returns a
// FailureCode. Stops at the first failure, which may be the read's or that of `use`, and returns
// it.
template <typename Use>
[[nodiscard]] FailureCode ReadBlocks(platform::Handle file, Use use) {
  std::array<char, kReadBlockSize> block{};
  for (;;) {
    std::uint32_t count = 0;
    if (!platform::ReadFile(file, block.data(), kReadBlockSize, &count)) {
      return platform::GetLastError();
    }
    if (count == 0) return std::nullopt;  // A short block is not the end; an empty one is.
    const FailureCode failure = use(std::string_view(block.data(), count));
    if (failure) return failure;
  }
}

// Passes each block of a stream to `use`, the last one even if it is empty. A read that fails ends
// the stream like its end; ferror tells which it was.
template <typename Use>
void ReadBlocks(platform::Stream* stream, Use use) {
  std::array<char, kReadBlockSize> block{};
  std::size_t count = 0;
  do {
    count = platform::fread(block.data(), block.size(), stream);
    use(std::string_view(block.data(), count));
  } while (count == block.size());
}

}  // namespace tolvarine::updater
