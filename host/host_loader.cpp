// Plug-in loader: dlopen, entry points, and the host's lifecycle order.
#include "host/host_loader.h"

#include <dlfcn.h>

#include <cstring>

namespace hostemu {

namespace {
constexpr int kMaxDepends = 64;
constexpr size_t kMaxDependLen = 256;
}  // namespace

CPluginLoader::~CPluginLoader() { Unload(); }

int CPluginLoader::Fail(int code, const std::string& text) {
    m_error = text;
    return code;
}

int CPluginLoader::Open(const std::string& path, const std::string& id) {
    if (m_lib != nullptr) return Fail(-1, "a plug-in is already loaded");
    dlerror();
    m_lib = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_lib == nullptr) {
        const char* e = dlerror();
        return Fail(-2, "dlopen " + path + " failed: " + (e ? e : "unknown error"));
    }
    struct Sym {
        const char* suffix;
        void** slot;
    } syms[] = {
        {"Info", reinterpret_cast<void**>(&m_getInfo)},
        {"Instance", reinterpret_cast<void**>(&m_getInstance)},
        {"Init", reinterpret_cast<void**>(&m_init)},
        {"DependSvr", reinterpret_cast<void**>(&m_getDepends)},
    };
    for (const Sym& s : syms) {
        std::string name = "Get" + id + s.suffix;
        dlerror();
        void* p = dlsym(m_lib, name.c_str());
        if (p == nullptr) {
            const char* e = dlerror();
            std::string text = "missing symbol " + name + ": " + (e ? e : "null address");
            dlclose(m_lib);
            m_lib = nullptr;
            return Fail(-3, text);
        }
        *s.slot = p;
    }
    return 0;
}

int CPluginLoader::Create(IRCfgObj* plugin, IRCfgObj* pub, const std::string& serviceName) {
    if (m_lib == nullptr) return Fail(-1, "no plug-in loaded");
    if (m_instance != nullptr) return Fail(-1, "instance already created");
    m_info = tagBaseServiceInfo{};
    if (m_getInfo(0, &m_info) != 1) return Fail(-4, "Info(0) did not return 1");
    m_instance = m_getInstance();
    if (m_instance == nullptr) return Fail(-5, "Instance() returned null");
    IKnown* svc = nullptr;
    if (m_instance->QueryInterface(SID_MESSAGESERVICE, &svc) != 0 && svc != nullptr)
        m_service = static_cast<IMessageService*>(svc);
    if (m_service != nullptr && !serviceName.empty()) m_service->SetServiceID(serviceName.c_str());

    IKnown* iocKnown = nullptr;
    m_instance->QueryInterface(SID_IOC, &iocKnown);
    if (iocKnown == nullptr) return Fail(-6, "the instance has no IoC facet");
    IIoC* ioc = static_cast<IIoC*>(iocKnown);
    if (plugin != nullptr) ioc->SetConfig("plugin", plugin);
    if (pub != nullptr) ioc->SetConfig("pub", pub);

    // The dependency list: NUL-terminated ids, ended by an empty one. Read
    // with limits so a list without its final NUL cannot run away.
    m_depends.clear();
    const char* list = m_getDepends(nullptr);
    for (int n = 0; list != nullptr && n < kMaxDepends; ++n) {
        size_t len = strnlen(list, kMaxDependLen);
        if (len == 0) break;
        if (len == kMaxDependLen) return Fail(-7, "dependency id longer than 255 characters");
        m_depends.emplace_back(list, len);
        list += len + 1;
    }
    for (const std::string& id : m_depends) {
        auto it = m_offers.find(id);
        if (it == m_offers.end() || it->second == nullptr) return Fail(-8, "missing dependency id " + id);
        ioc->SetDependService(id.c_str(), it->second);
    }
    return 0;
}

int CPluginLoader::Init() {
    if (m_instance == nullptr) return Fail(-1, "no instance");
    int r = m_init(m_instance, nullptr);
    if (r != 0) return Fail(r, "Init returned " + std::to_string(r));
    return 0;
}

int CPluginLoader::SysEvent(unsigned long event) {
    if (m_instance == nullptr) return Fail(-1, "no instance");
    IKnown* mgrKnown = nullptr;
    m_instance->QueryInterface(SID_MANAGER, &mgrKnown);
    if (mgrKnown == nullptr) return Fail(-6, "the instance has no manager facet");
    static_cast<IManager*>(mgrKnown)->ProcSysEvent(event, 0, 0, nullptr);
    return 0;
}

void CPluginLoader::ReleaseInstance() {
    if (m_instance != nullptr) m_instance->Release();
    m_instance = nullptr;
    m_service = nullptr;
}

void CPluginLoader::Unload() {
    ReleaseInstance();
    if (m_lib != nullptr) dlclose(m_lib);
    m_lib = nullptr;
    m_getInfo = nullptr;
    m_getInstance = nullptr;
    m_init = nullptr;
    m_getDepends = nullptr;
}

}  // namespace hostemu
