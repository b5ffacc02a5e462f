// Host emulator facade: wires every host service to a loaded plug-in.
#include "host/host_emulator.h"

#include <chrono>
#include <cstring>

namespace hostemu {

int CHostSecurity::QueryInterface(const char* id, IKnown** out) {
    if (out == nullptr) return 0;
    if (id != nullptr && strcmp(id, SID_SECURITY) == 0) {
        *out = this;
        return 1;
    }
    *out = nullptr;
    return 0;
}

HostEmulator::HostEmulator(HostOptions options)
    : m_opt(std::move(options)), m_factory(m_opt.quarantine) {
    m_loader.Offer(SID_ESBMESSAGEFACTORY, &m_factory);
    m_loader.Offer(SID_F2PACKSVR, &m_packSvr);
    m_loader.Offer(SID_CFGSVR, &m_config);
    m_loader.Offer(SID_LOG, &m_log);
    m_loader.Offer(SID_SECURITY, &m_security);
}

HostEmulator::~HostEmulator() { Shutdown(); }

int HostEmulator::Load() {
    if (m_loaded) return 0;
    int rc = !m_opt.configFile.empty() ? m_config.LoadFile(m_opt.configFile)
                                        : m_config.LoadString(m_opt.configXml.empty() ? "<host/>" : m_opt.configXml);
    if (rc != 0) {
        m_error = "configuration: " + m_config.Error();
        return -1;
    }
    HostSettings hs = m_config.Settings();
    std::string logFile = !m_opt.logFile.empty() ? m_opt.logFile : hs.logFile;
    if (!logFile.empty()) {
        int e = m_log.OpenFile(logFile);
        if (e != 0) {
            m_error = "log file " + logFile + ": " + strerror(e);
            return -1;
        }
    }
    m_log.SetStderr(m_opt.logStderr || hs.logStderr);

    rc = m_loader.Open(m_opt.pluginPath, m_opt.id);
    if (rc == 0) rc = m_loader.Create(m_config.GetConfig("plugin"), m_config.GetConfig("pub"), m_opt.serviceName);
    if (rc != 0) {
        m_error = m_loader.Error();
        m_loader.Unload();
        return rc;
    }
    if (IMessageService* svc = m_loader.Service()) {
        svc->RegisterPrevService(&m_center);
        svc->RegisterNextService(&m_client);
    }
    m_loaded = true;
    return 0;
}

int HostEmulator::Init() {
    if (!m_loaded) {
        int rc = Load();
        if (rc != 0) return rc;
    }
    if (m_inited) return 0;
    int rc = m_loader.Init();
    if (rc != 0) {
        m_error = m_loader.Error();
        return rc;
    }
    m_inited = true;
    return 0;
}

int HostEmulator::Start() {
    if (!m_inited) {
        int rc = Init();
        if (rc != 0) return rc;
    }
    if (m_started) return 0;
    int rc = m_loader.Start();
    if (rc != 0) {
        m_error = m_loader.Error();
        return rc;
    }
    m_started = true;
    int hb = m_config.Settings().heartbeatMs;
    if (hb > 0) {
        m_hbStop = false;
        m_heartbeat = std::thread([this, hb] { HeartbeatLoop(hb); });
    }
    return 0;
}

void HostEmulator::HeartbeatLoop(int periodMs) {
    using clock = std::chrono::steady_clock;
    auto next = clock::now() + std::chrono::milliseconds(periodMs);
    while (!m_hbStop.load()) {
        if (clock::now() >= next) {
            PostFromCenter(MessageSpec{620000, 0});
            next += std::chrono::milliseconds(periodMs);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(periodMs < 20 ? periodMs : 20));
    }
}

int HostEmulator::Stop() {
    if (m_heartbeat.joinable()) {
        m_hbStop = true;
        m_heartbeat.join();
    }
    if (!m_started || m_stopped) return 0;
    m_stopped = true;
    int rc = m_loader.Stop();
    if (rc != 0) m_error = m_loader.Error();
    return rc;
}

int HostEmulator::Exit() {
    if (!m_inited || m_exited) return 0;
    if (m_started && !m_stopped) Stop();
    m_exited = true;
    int rc = m_loader.Exit();
    if (rc != 0) m_error = m_loader.Error();
    return rc;
}

void HostEmulator::Shutdown() {
    Stop();
    Exit();
    m_loader.Unload();
    m_loaded = false;
    // Messages still queued for the plug-in are the host's to give back.
    m_factory.Queue().Drain();
}

int HostEmulator::Post(IESBMessage* msg, IMessageService* from) {
    IMessageService* svc = m_loader.Service();
    if (svc == nullptr) {
        if (msg != nullptr) msg->Release();
        m_error = "no plug-in service";
        return -1;
    }
    int rc = svc->PostMsg(msg, from);
    if (rc != 0 && msg != nullptr) msg->Release();
    return rc;
}

int HostEmulator::PostFromCenter(IESBMessage* msg) { return Post(msg, &m_center); }
int HostEmulator::PostFromCenter(const MessageSpec& fields) { return Post(BuildMessage(m_factory, fields), &m_center); }
int HostEmulator::PostFromClient(IESBMessage* msg) { return Post(msg, &m_client); }
int HostEmulator::PostFromClient(const MessageSpec& fields) { return Post(BuildMessage(m_factory, fields), &m_client); }

}  // namespace hostemu
