// A new temporary folder (see temp_folder.h).
#include "temp_folder.h"

#include <filesystem>
#include <random>

namespace kxtest {

std::string MakeTempFolder(const std::string& prefix) {
  std::error_code ec;
  const std::filesystem::path base = std::filesystem::temp_directory_path(ec);
  if (ec) return std::string();
  std::random_device device;
  std::mt19937_64 random((static_cast<uint64_t>(device()) << 32) ^ device());
  static const char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string name = prefix;
    for (int i = 0; i < 8; ++i) name.push_back(kLetters[random() % (sizeof(kLetters) - 1)]);
    const std::filesystem::path folder = base / name;
    if (std::filesystem::create_directory(folder, ec)) return folder.generic_string();
  }
  return std::string();
}

}  // namespace kxtest
