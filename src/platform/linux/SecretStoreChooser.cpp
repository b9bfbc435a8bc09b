#include "platform/linux/SecretStoreChooser.h"

#include <fstream>
#include <iterator>
#include <string>

#include "platform/linux/FileSecretStore.h"
#include "platform/linux/LibsecretSecretStore.h"
#include "util/ZVLog.h"

namespace zivora::platform {

namespace {

constexpr char kSecretService[] = "secret-service";
constexpr char kFile[] = "file";

std::string readChoice(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return text;
}

void writeChoice(const std::filesystem::path& path, const std::string& choice) {
  std::error_code error;
  std::filesystem::create_directories(path.parent_path(), error);
  std::ofstream out(path, std::ios::trunc);
  out << choice << '\n';
}

}  // namespace

std::filesystem::path SecretStoreChooser::choiceFile(const std::filesystem::path& dataRoot) {
  return dataRoot / "Preferences" / "secret-store";
}

std::filesystem::path SecretStoreChooser::fileStoreDirectory(
    const std::filesystem::path& dataRoot) {
  return dataRoot / "Preferences" / "secrets";
}

std::shared_ptr<SecretStore> SecretStoreChooser::open(const std::filesystem::path& dataRoot) {
  auto path = choiceFile(dataRoot);
  std::string choice = readChoice(path);
  bool remembered = choice == kSecretService || choice == kFile;
  if (!remembered) {
    choice = LibsecretSecretStore::available() ? kSecretService : kFile;
    writeChoice(path, choice);
  }
  std::shared_ptr<SecretStore> store;
  if (choice == kSecretService) {
    store = std::make_shared<LibsecretSecretStore>();
  } else {
    store = std::make_shared<FileSecretStore>(fileStoreDirectory(dataRoot));
  }
  ZVLog::system("[ZVPSaveKeychain] Secrets are kept in the " + store->description() +
                (remembered ? " (as chosen before)" : ""));
  return store;
}

}  // namespace zivora::platform
