// Single-leg quote datagrams shared by the UDP benchmarks: kContracts
// contracts of one realistic record shape, framed with type '0' and length.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace benchquotes {

constexpr int kContracts = 500;

inline std::vector<std::string> MakeDatagrams() {
    std::vector<std::string> out;
    for (int i = 0; i < kContracts; ++i) {
        char text[1024];
        snprintf(text, sizeof text,
                 "IF%04d,3850.2,3855.0,3861.4,3861.2,12,340,3861.6,8,290,3870.0,3845.2,3858.37,11.2,80321,"
                 "160234,92973211400.0,4235.2,3465.2,X,0,0,0,0,3849.8,158000,0,0,0,0,3861.0,5,3860.8,7,"
                 "3860.6,9,3860.4,11,3861.8,4,3862.0,6,3862.2,8,3862.4,10,F4,93015,",
                 i);
        char head[8];
        snprintf(head, sizeof head, "0%05d", static_cast<int>(strlen(text)));
        out.push_back(std::string(head) + text);
    }
    return out;
}

// A UDP socket on 127.0.0.1 with a free port, the receive buffer asked for
// (forced when allowed) and a 100 ms receive timeout so a reader can stop.
inline int OpenLoopbackReceiver(int bufBytes, unsigned* port) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &bufBytes, sizeof bufBytes) != 0)
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bufBytes, sizeof bufBytes);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
    socklen_t l = sizeof a;
    getsockname(fd, reinterpret_cast<sockaddr*>(&a), &l);
    *port = ntohs(a.sin_port);
    timeval tv{0, 100000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    return fd;
}

}  // namespace benchquotes
