// TolvarineUpdateTool run for real, on an installation, releases and a key of its own.

#pragma once

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "end_to_end/real_process.h"
#include "end_to_end/real_update.h"
#include "inspection/file_tree.h"

namespace tolvarine::updater::end_to_end {

using Arguments = std::vector<std::u16string>;

enum class Rights { User, Administrator };

struct ToolAnswer {
  std::uint32_t code = 0;
  std::string output;
  std::string errors;
  nlohmann::json json{};  // Of the output, where it was asked for with --json.

  // The names of the reasons that are no warnings, with a blank between them.
  [[nodiscard]] std::string Reasons() const;
};

// Runs the tool to its end, its output redirected.
[[nodiscard]] ToolAnswer RunTool(const Arguments& arguments, Rights rights = Rights::User);

// Files with the signed release that describes them.
struct Package {
  inspection::FileTree files;
  std::filesystem::path directory;
  std::filesystem::path release;
};

class ToolInstallation {
 public:
  // Installs these files beside one that the user has made, and adopts them as release 1.
  explicit ToolInstallation(const inspection::FileTree& files);
  ~ToolInstallation();
  ToolInstallation(const ToolInstallation&) = delete;
  ToolInstallation& operator=(const ToolInstallation&) = delete;

  std::filesystem::path root;
  std::filesystem::path target;
  std::filesystem::path state;
  std::filesystem::path key;

  // Step 1 of describing files alone, by the tool.
  [[nodiscard]] ToolAnswer Describe(std::uint64_t sequence, const inspection::FileTree& files);

  // Describes and signs a release.
  [[nodiscard]] Package MakePackage(std::uint64_t sequence, const inspection::FileTree& files);

  // A verb on this installation with --json, and with the key where it takes one.
  [[nodiscard]] ToolAnswer Run(std::u16string_view verb, const Arguments& options = {},
                               Rights rights = Rights::User) const;
  // `prepare` or `check`.
  [[nodiscard]] ToolAnswer Prepare(const Package& package, const Arguments& options = {},
                                   std::u16string_view verb = u"prepare",
                                   Rights rights = Rights::User) const;
  [[nodiscard]] ToolAnswer Adopt(const Package& package) const;

  // The state of the only update, by `status`.
  [[nodiscard]] std::string State() const;

  // `start --wait` with a running application. Throws std::runtime_error where it is refused.
  [[nodiscard]] std::unique_ptr<RealProcess> Start(const RunningApplication& application) const;

  // The installed application runs, has the updater started, and ends. Returns as
  // RealProcess::Finish does.
  [[nodiscard]] std::string RunUpdater() const;

  // Expects that the application was restarted, and that the installation holds exactly this
  // release and the file that the user has made.
  void ExpectInstalled(const Package& package) const;

 private:
  [[nodiscard]] std::filesystem::path Beside(std::uint64_t sequence, std::string_view name) const;
};

}  // namespace tolvarine::updater::end_to_end
