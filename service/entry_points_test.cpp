// The exported surface of libtikron.so, resolved the way the host does.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <set>
#include <string>

#include "frame/service_info.h"

namespace {

struct Library {
    void* handle = dlopen(TIKRON_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ~Library() {
        if (handle != nullptr) dlclose(handle);
    }
    template <typename F>
    F Get(const char* name) {
        return reinterpret_cast<F>(dlsym(handle, name));
    }
};

}  // namespace

TEST(EntryPoints, OnlyTheFourFunctionsAreExported) {
    std::string cmd = std::string("nm -D --defined-only '") + TIKRON_PLUGIN_PATH + "' 2>&1";
    FILE* p = popen(cmd.c_str(), "r");
    ASSERT_NE(nullptr, p);
    std::set<std::string> names;
    char line[1024];
    while (fgets(line, sizeof(line), p) != nullptr) {
        char addr[64], type[8], name[900];
        if (sscanf(line, "%63s %7s %899s", addr, type, name) == 3) names.insert(name);
    }
    ASSERT_EQ(0, pclose(p));
    std::set<std::string> expected = {"GetTIKRONInit", "GetTIKRONInstance", "GetTIKRONDependSvr",
                                      "GetTIKRONInfo"};
    EXPECT_EQ(expected, names);
}

TEST(EntryPoints, InfoRecordAndIndexRules) {
    Library lib;
    ASSERT_NE(nullptr, lib.handle) << dlerror();
    auto info = lib.Get<PFgetxxxxInfo>("GetTIKRONInfo");
    ASSERT_NE(nullptr, info);

    tagBaseServiceInfo rec{};
    rec.ServiceID = "untouched";
    EXPECT_EQ(0, info(1, &rec));
    EXPECT_EQ(0, info(-1, &rec));
    EXPECT_STREQ("untouched", rec.ServiceID);
    EXPECT_EQ(1, info(0, nullptr));

    ASSERT_EQ(1, info(0, &rec));
    EXPECT_STREQ("tikron", rec.ServiceID);
    EXPECT_EQ(20100301, rec.iVersion);
    EXPECT_EQ(lib.Get<PFinitxxxx>("GetTIKRONInit"), rec.Init);
    EXPECT_EQ(lib.Get<PFgetxxxxInstance>("GetTIKRONInstance"), rec.getInstance);
    EXPECT_EQ(lib.Get<PFgetxxxxDependService>("GetTIKRONDependSvr"), rec.getDependServices);
    ASSERT_NE(nullptr, rec.Caption);
    EXPECT_TRUE(std::regex_match(rec.Caption, std::regex(R"([A-Z][a-z]{2} +\d{1,2} \d{4} \d{2}:\d{2}:\d{2} V1\.0\.0\.0)")))
        << rec.Caption;
}

TEST(EntryPoints, DependencyMultiStringAndNullInstance) {
    Library lib;
    ASSERT_NE(nullptr, lib.handle) << dlerror();
    const char* deps = lib.Get<PFgetxxxxDependService>("GetTIKRONDependSvr")(nullptr);
    ASSERT_NE(nullptr, deps);
    std::vector<std::string> ids;
    for (const char* p = deps; *p != '\0'; p += strlen(p) + 1) ids.push_back(p);
    EXPECT_EQ((std::vector<std::string>{"com.velmora.kavle.esbmessagefactory", "com.velmora.kavle.f2packsvr",
                                        "com.velmora.kavle.config", "com.velmora.kavle.log"}),
              ids);
    EXPECT_EQ(0, lib.Get<PFinitxxxx>("GetTIKRONInit")(nullptr, nullptr));

    // Every call makes a new object; Release destroys it.
    auto make = lib.Get<PFgetxxxxInstance>("GetTIKRONInstance");
    IKnown* a = make();
    IKnown* b = make();
    ASSERT_NE(nullptr, a);
    EXPECT_NE(a, b);
    EXPECT_EQ(1, a->Release());
    EXPECT_EQ(1, b->Release());
}
