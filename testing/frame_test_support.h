// Helpers shared by the plug-in tests: configuration texts, access to the
// service object behind the emulator's IMessageService pointer, a temporary
// working directory, datagram framing, a 127.0.0.1 sender and bounded waits.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "frame/tikron_service.h"
#include "host/host_emulator.h"
#include "testing/temp_dir.h"

namespace frametest {

using testing_support::TempWorkDir;
using testing_support::WaitUntil;

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

inline hostemu::PackedBody Decode(const std::vector<char>& bytes) {
    hostemu::PackedBody b;
    EXPECT_EQ(0, hostemu::DecodePacked(bytes.data(), static_cast<int>(bytes.size()), &b));
    return b;
}

// Type character, five-digit length, text.
inline std::string Datagram(char type, const std::string& text) {
    char head[8];
    snprintf(head, sizeof head, "%c%05d", type, static_cast<int>(text.size()));
    return head + text;
}

// Sends whole datagrams to 127.0.0.1:port.
class UdpSender {
public:
    UdpSender() : m_fd(socket(AF_INET, SOCK_DGRAM, 0)) {}
    ~UdpSender() {
        if (m_fd >= 0) close(m_fd);
    }
    UdpSender(const UdpSender&) = delete;
    UdpSender& operator=(const UdpSender&) = delete;
    bool Send(int port, const std::string& d) const {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(static_cast<uint16_t>(port));
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return m_fd >= 0 && sendto(m_fd, d.data(), d.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to) ==
                                static_cast<ssize_t>(d.size());
    }

private:
    int m_fd;
};

}  // namespace frametest
