// A host with global functions of its own that happen to be called like the library's. It gets the library by dlopen().
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "../support/Eicar.h"
#include "../support/TempDir.h"

#define HOSTS_OWN(name) \
    extern "C" __attribute__((visibility("default"))) void name() { std::abort(); }

HOSTS_OWN(init)
HOSTS_OWN(reload)
HOSTS_OWN(freeResource)
HOSTS_OWN(scanFile)
HOSTS_OWN(IsFalseAlarm)
HOSTS_OWN(setDebugger)
HOSTS_OWN(getVersion)

namespace {

TEST(OwnNames, areNotCalledByTheLibrary) {
    void* const library = ::dlopen(VOLE_LIBRARY, RTLD_NOW | RTLD_GLOBAL);
    ASSERT_NE(library, nullptr) << ::dlerror();
    const auto load = [library]<class Function>(const char* name, Function*& function) {
        function = reinterpret_cast<Function*>(::dlsym(library, name));
        ASSERT_NE(function, nullptr) << name;
    };
    int (*initEngine)(const char*, std::string&);
    int (*scan)(const char*, std::string&, std::string&);
    int (*unload)();
    load("init", initEngine);
    load("scanFile", scan);
    load("freeResource", unload);
    ASSERT_FALSE(HasFailure());

    const TempDir dir;
    std::string message, virus;
    EXPECT_EQ(initEngine(VOLE_STARTER_PATTERNS, message), 0) << message;
    EXPECT_EQ(scan(dir.write("s", eicar()).c_str(), virus, message), 1);
    EXPECT_EQ(virus, "Eicar-Test-File");
    EXPECT_EQ(unload(), 0);
}

}  // namespace
