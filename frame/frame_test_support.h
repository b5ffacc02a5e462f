// Helpers for the service frame tests: configuration texts and access to
// the service object behind the emulator's IMessageService pointer.
#pragma once

#include <string>

#include "frame/tikron_service.h"
#include "host/host_emulator.h"

namespace frametest {

inline std::string Config(const std::string& plugin, const std::string& host = "") {
    return "<tikron><pub><node AppName=\"A\" AppID=\"1\" SvrName=\"S\" SvrID=\"2\"/></pub>"
           "<plugin>" + plugin + "</plugin>" + host + "</tikron>";
}

inline hostemu::HostOptions Options(const std::string& xml) {
    hostemu::HostOptions o;
    o.pluginPath = TIKRON_PLUGIN_PATH;
    o.configXml = xml;
    return o;
}

// The plug-in's object; the classes have the same layout on both sides, so
// members may be read (but no non-virtual function of it called: the
// library's globals are its own).
inline CTIKRONServiceImpl* Svc(hostemu::HostEmulator& host) {
    return static_cast<CTIKRONServiceImpl*>(host.Service());
}

}  // namespace frametest
