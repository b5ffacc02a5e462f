// The host emulator: every host service in one object, plus the loader and
// the two chain neighbours, wired the way the real host wires a plug-in.
//
//   hostemu::HostOptions o;
//   o.pluginPath = TIKRON_PLUGIN_PATH;
//   o.configXml = "<tikron><pub><n AppName='A' AppID='1' SvrName='S' SvrID='2'/></pub>"
//                 "<plugin><args enableudprecv='0'/></plugin></tikron>";
//   hostemu::HostEmulator host(o);
//   ASSERT_EQ(0, host.Start()) << host.Error();   // load, init, start
//   host.PostFromCenter(fields);                    // a message into the plug-in
//   host.Center().WaitForCount(1, 2000);          // what it sent on
//   host.Shutdown();                              // stop, exit, release
#pragma once

#include <memory>
#include <string>
#include <thread>
#include <atomic>

#include "host/host_config.h"
#include "host/host_loader.h"
#include "host/host_log.h"
#include "host/host_message.h"
#include "host/host_neighbour.h"
#include "host/host_pack.h"
#include "host/host_queue.h"

namespace hostemu {

// Security service stub: Check always succeeds (0).
class CHostSecurity final : public ISecurity {
public:
    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int Check(const char*) override { return 0; }
};

struct HostOptions {
    std::string pluginPath;            // the .so to load
    std::string id = "TIKRON";         // symbol infix: Get<ID>Info ...
    std::string serviceName = "tikron";// passed to SetServiceID ("" : not called)
    std::string configFile;            // XML file, or
    std::string configXml;             // XML text (used when configFile is empty)
    std::string logFile;               // overrides <host log_file>
    bool logStderr = false;            // or <host log_stderr="1">
    size_t quarantine = 4096;          // released messages kept for checking
};

class HostEmulator {
public:
    explicit HostEmulator(HostOptions options);
    ~HostEmulator();  // Shutdown()
    HostEmulator(const HostEmulator&) = delete;
    HostEmulator& operator=(const HostEmulator&) = delete;

    // Step by step (each 0 on success, Error() tells what failed):
    int Load();   // config, dlopen, instance, dependencies, chain neighbours
    int Init();   // Get<ID>Init
    int Start();  // Load and Init when not done yet, then system event 1
    int Stop();   // system event 2
    int Exit();   // system event 3
    // Stop and Exit when due, Release the instance, unload the library.
    void Shutdown();
    const std::string& Error() const { return m_error; }

    // Post into the plug-in as the message center (from = Center()) or as a
    // client (from = Client()). Returns the plug-in's PostMsg result; on a
    // non-zero result the message was released here.
    int PostFromCenter(IESBMessage* msg);
    int PostFromCenter(const MessageSpec& fields);
    int PostFromClient(IESBMessage* msg);
    int PostFromClient(const MessageSpec& fields);

    CHostMessageFactory& Factory() { return m_factory; }
    CHostPackSvr& PackSvr() { return m_packSvr; }
    CHostConfig& Config() { return m_config; }
    CHostLog& Log() { return m_log; }
    CHostSecurity& Security() { return m_security; }
    // The message-center side: registered with RegisterPrevService; receives
    // everything the plug-in transfers with a null sender.
    CHostNeighbour& Center() { return m_center; }
    // The client side: registered with RegisterNextService.
    CHostNeighbour& Client() { return m_client; }
    CPluginLoader& Loader() { return m_loader; }
    IMessageService* Service() { return m_loader.Service(); }

private:
    int Post(IESBMessage* msg, IMessageService* from);
    void HeartbeatLoop(int periodMs);

    HostOptions m_opt;
    // Declaration order = destruction order reversed: the factory outlives
    // the loader so messages the plug-in still holds stay valid.
    CHostMessageFactory m_factory;
    CHostPackSvr m_packSvr;
    CHostConfig m_config;
    CHostLog m_log;
    CHostSecurity m_security;
    CHostNeighbour m_center{"mc"};
    CHostNeighbour m_client{"client"};
    CPluginLoader m_loader;
    std::string m_error;
    bool m_loaded = false, m_inited = false, m_started = false, m_stopped = false, m_exited = false;
    std::thread m_heartbeat;
    std::atomic<bool> m_hbStop{false};
};

}  // namespace hostemu
