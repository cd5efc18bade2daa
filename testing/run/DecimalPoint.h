// DecimalPoint: gives this process a locale with another decimal point, from its construction to the end of its scope.
//
//   DecimalPoint comma(",");
//   ASSERT_TRUE(comma.isSet());
//
// Writes the locale to a temporary folder, in the format of the files that localedef makes for the GNU C library. So a
// test needs no installed locale.
// Threads: it changes the environment and the locale, so no other thread may use them meanwhile.
#pragma once

#include <locale.h>
#include <stdlib.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

class DecimalPoint {
 public:
  // The point has at most seven bytes.
  explicit DecimalPoint(std::string_view point) {
    if (::mkdtemp(folder_) == nullptr) return;
    std::filesystem::create_directory(locale());
    std::ofstream(file(), std::ios::binary) << contentOfFile(point);
    if (const char* before = ::getenv("LOCPATH")) before_ = before;
    ::setenv("LOCPATH", folder_, 1);
    isSet_ = ::setlocale(LC_NUMERIC, kName) != nullptr && point == ::localeconv()->decimal_point;
  }
  ~DecimalPoint() {
    ::setlocale(LC_NUMERIC, "C");
    (void)(before_ ? ::setenv("LOCPATH", before_->c_str(), 1) : ::unsetenv("LOCPATH"));
    std::error_code ignored;
    for (const auto& path : {file(), locale(), std::filesystem::path(folder_)}) std::filesystem::remove(path, ignored);
  }
  DecimalPoint(const DecimalPoint&) = delete;
  DecimalPoint& operator=(const DecimalPoint&) = delete;

  bool isSet() const { return isSet_; }

 private:
  static constexpr char kName[] = "point";

  std::filesystem::path locale() const { return std::filesystem::path(folder_) / kName; }
  std::filesystem::path file() const { return locale() / "LC_NUMERIC"; }

  // Two numbers, the position of each of six values, and the values: the point, the separator of thousands, their
  // grouping, the first two as wide characters, and the name of the encoding.
  static std::string contentOfFile(std::string_view point) {
    constexpr std::uint32_t kMagic = 0x20031115 ^ LC_NUMERIC;
    constexpr std::uint32_t kStart = 8 * sizeof(std::uint32_t);
    const std::uint32_t numbers[] = {kMagic, 6, kStart, kStart + 8, kStart + 12, kStart + 16, kStart + 20, kStart + 24};
    std::string content(kStart + 32, '\0');
    std::memcpy(content.data(), numbers, sizeof numbers);
    point.copy(content.data() + kStart, 7);
    const std::uint32_t wide = ',';
    std::memcpy(content.data() + kStart + 16, &wide, sizeof wide);
    std::strcpy(content.data() + kStart + 24, "UTF-8");
    return content;
  }

  std::optional<std::string> before_;
  char folder_[32] = "/tmp/decimal-point-XXXXXX";
  bool isSet_ = false;
};
