// Loads a plug-in library and drives it the way the host does:
//   Get<ID>Info(0), Get<ID>Instance(), SetServiceID, IoC SetConfig("plugin"),
//   SetConfig("pub"), SetDependService for every id of Get<ID>DependSvr,
//   Get<ID>Init, then ProcSysEvent 1 (start), 2 (stop), 3 (exit), Release.
#pragma once

#include <map>
#include <vector>
#include <string>

#include "frame/host_interfaces.h"
#include "frame/service_info.h"

namespace hostemu {

class CPluginLoader {
public:
    CPluginLoader() = default;
    ~CPluginLoader();  // Unload()
    CPluginLoader(const CPluginLoader&) = delete;
    CPluginLoader& operator=(const CPluginLoader&) = delete;

    // Dependencies offered to the plug-in by interface id.
    void Offer(const std::string& id, IKnown* obj) { m_offers[id] = obj; }

    // dlopen + resolve Get<ID>Info/Instance/Init/DependSvr (ID e.g. "TIKRON").
    int Open(const std::string& path, const std::string& id);
    // Info(0), Instance, SetServiceID(serviceName), configs, dependencies.
    // `plugin` and `pub` may be null (nothing passed).
    int Create(IRCfgObj* plugin, IRCfgObj* pub, const std::string& serviceName);
    int Init();                         // Get<ID>Init result (0 = success)
    int SysEvent(unsigned long event);  // ProcSysEvent through the manager facet
    int Start() { return SysEvent(1); }
    int Stop() { return SysEvent(2); }
    int Exit() { return SysEvent(3); }
    // Release the instance (if any), then dlclose.
    void Unload();
    // Release the instance but keep the library loaded.
    void ReleaseInstance();

    const std::string& Error() const { return m_error; }
    IKnown* Instance() const { return m_instance; }
    IMessageService* Service() const { return m_service; }
    const tagBaseServiceInfo& Info() const { return m_info; }
    std::string Caption() const { return m_info.Caption ? m_info.Caption : ""; }
    // Dependency ids the plug-in asked for, in order.
    const std::vector<std::string>& Depends() const { return m_depends; }

private:
    int Fail(int code, const std::string& text);

    void* m_lib = nullptr;
    PFgetxxxxInfo m_getInfo = nullptr;
    PFgetxxxxInstance m_getInstance = nullptr;
    PFinitxxxx m_init = nullptr;
    PFgetxxxxDependService m_getDepends = nullptr;
    tagBaseServiceInfo m_info{};
    IKnown* m_instance = nullptr;
    IMessageService* m_service = nullptr;
    std::map<std::string, IKnown*> m_offers;
    std::vector<std::string> m_depends;
    std::string m_error;
};

}  // namespace hostemu
