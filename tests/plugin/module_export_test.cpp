// The built module as a host sees it: it loads with dlopen, its two exports work,
// and its dynamic symbol table defines nothing else.
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "host/kxaudiofile.h"
#include "host/zss_plugin.h"
#include "support/memory_stream.h"

namespace {

// Names of the defined global and weak symbols of an ELF64 file's dynamic symbol table.
std::set<std::string> DefinedDynamicSymbols(const std::vector<uint8_t>& file) {
  std::set<std::string> names;
  if (file.size() < sizeof(Elf64_Ehdr)) return names;
  Elf64_Ehdr eh;
  std::memcpy(&eh, file.data(), sizeof(eh));
  if (std::memcmp(eh.e_ident, ELFMAG, SELFMAG) != 0 || eh.e_ident[EI_CLASS] != ELFCLASS64) return names;
  std::vector<Elf64_Shdr> sections(eh.e_shnum);
  for (size_t i = 0; i < eh.e_shnum; ++i) {
    std::memcpy(&sections[i], file.data() + eh.e_shoff + i * eh.e_shentsize, sizeof(Elf64_Shdr));
  }
  for (const Elf64_Shdr& sh : sections) {
    if (sh.sh_type != SHT_DYNSYM) continue;
    const Elf64_Shdr& strtab = sections.at(sh.sh_link);
    const size_t count = sh.sh_size / sizeof(Elf64_Sym);
    for (size_t k = 0; k < count; ++k) {
      Elf64_Sym sym;
      std::memcpy(&sym, file.data() + sh.sh_offset + k * sizeof(Elf64_Sym), sizeof(sym));
      const int bind = ELF64_ST_BIND(sym.st_info);
      if (sym.st_shndx == SHN_UNDEF || (bind != STB_GLOBAL && bind != STB_WEAK)) continue;
      names.insert(reinterpret_cast<const char*>(file.data() + strtab.sh_offset + sym.st_name));
    }
  }
  return names;
}

// The libraries an ELF64 file names as needed (DT_NEEDED of its dynamic section).
std::set<std::string> NeededLibraries(const std::vector<uint8_t>& file) {
  std::set<std::string> names;
  if (file.size() < sizeof(Elf64_Ehdr)) return names;
  Elf64_Ehdr eh;
  std::memcpy(&eh, file.data(), sizeof(eh));
  std::vector<Elf64_Shdr> sections(eh.e_shnum);
  for (size_t i = 0; i < eh.e_shnum; ++i) {
    std::memcpy(&sections[i], file.data() + eh.e_shoff + i * eh.e_shentsize, sizeof(Elf64_Shdr));
  }
  for (const Elf64_Shdr& sh : sections) {
    if (sh.sh_type != SHT_DYNAMIC) continue;
    const Elf64_Shdr& strtab = sections.at(sh.sh_link);
    for (size_t k = 0; k < sh.sh_size / sizeof(Elf64_Dyn); ++k) {
      Elf64_Dyn dyn;
      std::memcpy(&dyn, file.data() + sh.sh_offset + k * sizeof(Elf64_Dyn), sizeof(dyn));
      if (dyn.d_tag == DT_NEEDED) {
        names.insert(reinterpret_cast<const char*>(file.data() + strtab.sh_offset + dyn.d_un.d_val));
      }
    }
  }
  return names;
}

class ModuleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    handle_ = dlopen(KX_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle_, nullptr) << dlerror();
  }
  void TearDown() override {
    if (handle_ != nullptr) dlclose(handle_);
  }
  void* handle_ = nullptr;
};

TEST_F(ModuleTest, ExportsOnlyTheTwoEntryPoints) {
  const std::vector<uint8_t> file = kxtest::ReadFile(KX_MODULE_PATH);
  ASSERT_FALSE(file.empty());
  const std::set<std::string> names = DefinedDynamicSymbols(file);
  EXPECT_EQ(names, (std::set<std::string>{"ZSSGetPluginInfo", "CreateInstance_KXMP3"}));
  EXPECT_NE(dlsym(handle_, "ZSSGetPluginInfo"), nullptr);
  EXPECT_NE(dlsym(handle_, "CreateInstance_KXMP3"), nullptr);
  // The callbacks and internals are reached through the records only.
  for (const char* hidden : {"GetFormatInfo", "ProbeFormat", "CreateDecoder", "ShowAbout", "DllMain",
                             "_ZN5kxmp313ProcessAttachEP8KxModule", "_ZN5kxmp313GetFormatInfoEP10FormatInfo",
                             "_ZN11Class_KXMP36CreateEPv", "InitDecoderTables"}) {
    EXPECT_EQ(dlsym(handle_, hidden), nullptr) << hidden;
  }
}

TEST_F(ModuleTest, ImportsBothHostLibraries) {
  const std::set<std::string> needed = NeededLibraries(kxtest::ReadFile(KX_MODULE_PATH));
  EXPECT_EQ(needed.count("libKXLibCore.so.0"), 1u);
  EXPECT_EQ(needed.count("libKXAFLib.so.0"), 1u);
}

TEST_F(ModuleTest, RecordsAndObjectsThroughTheExports) {
  auto getInfo = reinterpret_cast<ZssGetPluginInfoFn>(dlsym(handle_, "ZSSGetPluginInfo"));
  ASSERT_NE(getInfo, nullptr);
  PluginInfo info{};
  ASSERT_EQ(getInfo(&info), AF_S_OK);
  EXPECT_EQ(info.interfaceVersion, 0x3000u);
  EXPECT_EQ(std::u16string(info.libraryName), u"Kx MPEG Audio Layer-III File Library");
  FormatInfo format{};
  ASSERT_EQ(info.getFormatInfo(&format), AF_S_OK);
  ASSERT_EQ(format.formatCount, 1u);
  EXPECT_EQ(format.formatCodes[0], FOURCC_ZMP3);

  using CreateFn = KxResult (*)(Class_ZCOM**);
  auto create = reinterpret_cast<CreateFn>(dlsym(handle_, "CreateInstance_KXMP3"));
  ASSERT_NE(create, nullptr);
  Class_ZCOM* object = nullptr;
  ASSERT_EQ(create(&object), AF_S_OK);
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->GetFourCC(), FOURCC_ZMP3);
  void* audio = nullptr;
  ASSERT_EQ(object->QueryInterface(FOURCC_ZMP3, &audio), AF_S_OK);
  uint32_t size = 0;
  EXPECT_EQ(static_cast<Class_KXAudioFile*>(audio)->GetInfo(FOURCC_ZMP3, nullptr, &size), AF_E_NOT_READY);
  static_cast<Class_KXAudioFile*>(audio)->Release();
  EXPECT_EQ(object->Release(), 0u);

  Class_ZCOM* viaCallback = nullptr;
  ASSERT_EQ(format.create(FOURCC_ZMP3, &viaCallback), AF_S_OK);
  EXPECT_EQ(viaCallback->Release(), 0u);
}

}  // namespace
