// libtikron.so as a host sees it: four exported entry points, the info
// record and dependency list, and the emulator's loader driving it, with a
// clear error when loading fails.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <set>
#include <string>

#include "frame/service_info.h"
#include "testing/frame_test_support.h"

namespace {

TEST(EntryPoints, ExportsInfoRecordAndInstances) {
    FILE* p = popen((std::string("nm -D --defined-only '") + TIKRON_PLUGIN_PATH + "' 2>&1").c_str(), "r");
    ASSERT_NE(nullptr, p);
    std::set<std::string> names;
    char line[1024], addr[64], type[8], name[900];
    while (fgets(line, sizeof(line), p) != nullptr)
        if (sscanf(line, "%63s %7s %899s", addr, type, name) == 3) names.insert(name);
    ASSERT_EQ(0, pclose(p));
    EXPECT_EQ((std::set<std::string>{"GetTIKRONInit", "GetTIKRONInstance", "GetTIKRONDependSvr", "GetTIKRONInfo"}), names);

    void* lib = dlopen(TIKRON_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, lib) << dlerror();
    auto info = reinterpret_cast<PFgetxxxxInfo>(dlsym(lib, "GetTIKRONInfo"));
    tagBaseServiceInfo rec{};
    rec.ServiceID = "untouched";
    EXPECT_EQ(0, info(1, &rec));
    EXPECT_EQ(0, info(-1, &rec));
    EXPECT_STREQ("untouched", rec.ServiceID);
    EXPECT_EQ(1, info(0, nullptr));
    ASSERT_EQ(1, info(0, &rec));
    EXPECT_STREQ("tikron", rec.ServiceID);
    EXPECT_EQ(20100301, rec.iVersion);
    EXPECT_EQ(dlsym(lib, "GetTIKRONInit"), reinterpret_cast<void*>(rec.Init));
    EXPECT_EQ(dlsym(lib, "GetTIKRONInstance"), reinterpret_cast<void*>(rec.getInstance));
    EXPECT_EQ(dlsym(lib, "GetTIKRONDependSvr"), reinterpret_cast<void*>(rec.getDependServices));
    EXPECT_TRUE(std::regex_match(rec.Caption, std::regex(R"([A-Z][a-z]{2} +\d{1,2} \d{4} \d{2}:\d{2}:\d{2} V1\.0\.0\.0)")))
        << rec.Caption;
    EXPECT_EQ(0, rec.Init(nullptr, nullptr));
    IKnown* a = rec.getInstance();
    IKnown* b = rec.getInstance();
    ASSERT_NE(nullptr, a);
    EXPECT_NE(a, b) << "every call makes a new object";
    EXPECT_EQ(1, a->Release());
    EXPECT_EQ(1, b->Release());
    dlclose(lib);
}

TEST(Loader, FailuresAreReportedClearly) {
    const struct {
        const char* path;
        const char* id;
        const char* xml;
        const char* error;
    } cases[] = {
        {"/nonexistent/libnothing.so", "TIKRON", "<r/>", "dlopen /nonexistent/libnothing.so failed"},
        {TIKRON_PLUGIN_PATH, "NOPE", "<r/>", "missing symbol GetNOPEInfo"},
        {TIKRON_PLUGIN_PATH, "TIKRON", "<r><unclosed></r>", "configuration"},
    };
    for (const auto& c : cases) {
        hostemu::HostOptions o = frametest::Options(c.xml);
        o.pluginPath = c.path;
        o.id = c.id;
        hostemu::HostEmulator host(o);
        EXPECT_NE(0, host.Start()) << c.error;
        EXPECT_NE(std::string::npos, host.Error().find(c.error)) << host.Error();
    }
    // A host without a log service: the dependency is named.
    hostemu::CHostMessageFactory f;
    hostemu::CHostPackSvr packs;
    hostemu::CHostConfig config;
    hostemu::CPluginLoader loader;
    loader.Offer(SID_ESBMESSAGEFACTORY, &f);
    loader.Offer(SID_F2PACKSVR, &packs);
    loader.Offer(SID_CFGSVR, &config);
    ASSERT_EQ(0, loader.Open(TIKRON_PLUGIN_PATH, "TIKRON")) << loader.Error();
    EXPECT_NE(0, loader.Create(nullptr, nullptr, ""));
    EXPECT_EQ("missing dependency id " SID_LOG, loader.Error());
    EXPECT_EQ((std::vector<std::string>{"com.velmora.kavle.esbmessagefactory", "com.velmora.kavle.f2packsvr",
                                        "com.velmora.kavle.config", SID_LOG}),
              loader.Depends());
}

}  // namespace
