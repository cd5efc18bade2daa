// Checks the program file that users get: it needs no other file, is position-independent and is hardened.
#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cstring>
#include <optional>
#include <vector>

#include "testing/host/HostFiles.h"
#include "testing/run/Program.h"

namespace {

// The tables of an ELF file that the tests need. The file is for this machine, so it has the byte order of this
// program.
class ElfFile {
 public:
  explicit ElfFile(const std::string& path) : bytes_(host::readFile(path)) {}

  bool isValid() const {
    return bytes_.size() >= sizeof(ElfW(Ehdr)) && std::memcmp(bytes_.data(), ELFMAG, SELFMAG) == 0;
  }

  ElfW(Half) type() const { return at<ElfW(Ehdr)>(0).e_type; }

  std::optional<ElfW(Phdr)> segment(ElfW(Word) type) const {
    const auto header = at<ElfW(Ehdr)>(0);
    for (size_t i = 0; i < header.e_phnum; ++i) {
      const auto segment = at<ElfW(Phdr)>(header.e_phoff + i * header.e_phentsize);
      if (segment.p_type == type) return segment;
    }
    return std::nullopt;
  }

  // Returns the values of a tag of the dynamic section.
  std::vector<ElfW(Xword)> dynamic(ElfW(Sxword) tag) const {
    std::vector<ElfW(Xword)> values;
    const auto section = segment(PT_DYNAMIC);
    for (size_t offset = 0; section && offset < section->p_filesz; offset += sizeof(ElfW(Dyn))) {
      const auto entry = at<ElfW(Dyn)>(section->p_offset + offset);
      if (entry.d_tag == DT_NULL) break;
      if (entry.d_tag == tag) values.push_back(entry.d_un.d_val);
    }
    return values;
  }

 private:
  template <typename T>
  T at(size_t offset) const {
    T value;
    std::memset(&value, 0, sizeof value);
    if (offset + sizeof value <= bytes_.size()) std::memcpy(&value, bytes_.data() + offset, sizeof value);
    return value;
  }

  const std::string bytes_;
};

class ReleaseBinary : public testing::Test {
 protected:
  void SetUp() override {
    if (!RAVCTL_IS_RELEASE) GTEST_SKIP() << "only an optimised build without instruments is hardened";
    ASSERT_TRUE(elf_.isValid()) << ravctlPath();
  }
  const ElfFile elf_{ravctlPath()};
};

TEST_F(ReleaseBinary, NeedsNoOtherFileToRun) {
  if (!RAVCTL_IS_STATIC_PIE) GTEST_SKIP() << "linked dynamically: no static libraries here, or RAVCTL_STATIC is off";
  EXPECT_FALSE(elf_.segment(PT_INTERP));
  EXPECT_TRUE(elf_.dynamic(DT_NEEDED).empty());
}

TEST_F(ReleaseBinary, IsPositionIndependentWithReadOnlyTablesAndANonExecutableStack) {
  EXPECT_EQ(elf_.type(), ET_DYN);
  EXPECT_TRUE(elf_.segment(PT_GNU_RELRO)) << "the tables can be written after relocation";
  const auto flags = elf_.dynamic(DT_FLAGS);
  ASSERT_EQ(flags.size(), 1u);
  EXPECT_NE(flags[0] & DF_BIND_NOW, 0u);
  const auto stack = elf_.segment(PT_GNU_STACK);
  ASSERT_TRUE(stack);
  EXPECT_EQ(stack->p_flags & PF_X, 0u);
}

}  // namespace
