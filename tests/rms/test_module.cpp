// Loading: a second copy of the library, in a directory with a module of the test's choice.
#include "auth_fixture.hpp"

#include <dlfcn.h>

using namespace test;

namespace {

// Its symbols are called by hand; this program's own library stays apart.
class LibraryCopy {
  public:
    LibraryCopy() {
        zwchar bin[Z_PATH_MAX], appdata[Z_PATH_MAX];
        zPathGetBin(bin), zPathGetAppData(appdata);
        const auto lib = dir_.path() / "lib";
        std::filesystem::create_directories(lib);
        std::filesystem::copy(std::filesystem::path(bin) / "libzev.so.1", lib / "libzev.so.1");
        std::filesystem::create_directory_symlink(std::filesystem::path(appdata) / "conf",
                                                  dir_.path() / "conf");
    }
    std::filesystem::path module() const { return dir_.path() / "lib" / "libzevauth.so"; }

    // What its zAuthServerStart leaves in its record; "" for a table.
    std::string start() {
        void *library = dlopen((dir_.path() / "lib/libzev.so.1").c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!library) return dlerror();
        const auto detail = symbol<const zwchar *()>(library, "zErrorDetail");
        symbol<bool(const zwchar *, const zwchar *)>(library, "zGlobalInit")(u"en-US", nullptr);
        AuthTable *table = symbol<AuthTable *()>(library, "zAuthServerStart")();
        const std::string told = table ? "" : narrow(detail());
        symbol<void(AuthTable *)>(library, "zAuthServerShutdown")(table);
        symbol<bool()>(library, "zGlobalCleanup")();
        return told;
    }

  private:
    template <class F> static F *symbol(void *library, const char *name) {
        return reinterpret_cast<F *>(dlsym(library, name));
    }
    TempDir dir_;
};

TEST(AuthModule, AServiceNeedsAWholeOne) {
    LibraryCopy library;
    EXPECT_NE(library.start().find("'libzevauth.so' could not be loaded"), std::string::npos);
    write(library.module(), "no module");
    EXPECT_NE(library.start().find("'libzevauth.so' could not be loaded"), std::string::npos);
    std::filesystem::remove(library.module());
    std::filesystem::copy(ZEV_AUTH_GAP, library.module());
    EXPECT_NE(library.start().find("'libzevauth.so' could not be started"), std::string::npos);
    zAuthServerShutdown(nullptr);
}

} // namespace
