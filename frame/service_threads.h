// Threads of the service: message workers, heartbeat/subscription and
// registration. Each calls Stop in its own destructor so that Run never sees
// a half-destroyed object.
#pragma once

#include <atomic>
#include <ctime>

#include "frame/host_interfaces.h"
#include "frame/scratch_records.h"
#include "kos/kavle2.h"

class CMessageServiceImpl;

class CMessageServiceThread : public KAVLE2::CThread {
public:
    CMessageServiceThread();
    ~CMessageServiceThread() override;
    long Run() override;

    // Stores the owner and creates this thread's packers and unpackers.
    void SetOwnerService(CMessageServiceImpl* owner);
    // Selects the packer pair matching the buffer's packing version. Returns 0.
    int GetUnPacker(const void* buf, int len);

    CMessageServiceImpl* m_lpOwnerService;
    IF2UnPacker* m_pV1UnPacker;
    IF2UnPacker* m_pV2UnPacker;
    IF2Packer* m_pV1Packer;
    IF2Packer* m_pV2Packer;
    IF2UnPacker* m_pUnPacker;
    IF2Packer* m_pPacker;
    STHB m_szLocalHB;
    STCJ m_szLocalCJ;
    STCJ_EX m_szLocalCJ_EX;
    STWTQR m_szLocalWTQR;
    STWTQR_EX m_szLocalWTQR_EX;
    STBJHB m_szLocalBJ;
};

class CHeartBeatThread : public KAVLE2::CThread {
public:
    CHeartBeatThread();
    ~CHeartBeatThread() override;
    long Run() override;
    void Signal() override;

    void SetOwnerService(CMessageServiceImpl* owner);

    std::atomic<int> m_iStatus;          // 1 while subscribed
    std::atomic<time_t> m_iSubscibeTime; // last sign of life from the message center
    std::atomic<int> m_iStop;
    IF2UnPacker* m_pUnPacker;
    IF2Packer* m_pPacker;
    KAVLE2::CEvent m_szStopEvent;
    CMessageServiceImpl* m_lpOwnerService;

    // The heartbeat's clock: wall time plus m_lClockOffset seconds (0 in
    // production; tests move it to cross days or time-outs without waiting).
    std::atomic<long> m_lClockOffset{0};
    time_t Now() const { return time(nullptr) + static_cast<time_t>(m_lClockOffset.load()); }
    // Passes of the loop completed so far (lets callers wait for the next one).
    std::atomic<unsigned long> m_ulPasses{0};

private:
    std::atomic<bool> m_bQuit{false};  // set by Signal: the object is being stopped
};

class CRegeditServiceThread : public KAVLE2::CThread {
public:
    CRegeditServiceThread();
    ~CRegeditServiceThread() override;
    long Run() override;
    void Signal() override;

    void SetOwnerService(CMessageServiceImpl* owner) { m_lpOwnerService = owner; }

    std::atomic<int> m_iStop;  // set by a worker when the function-2 answer arrives
    ILogService* m_lpLogService;
    KAVLE2::CEvent m_szStopEvent;
    CMessageServiceImpl* m_lpOwnerService;

private:
    // Run resets m_iStop on entry, so stopping the object needs its own flag.
    std::atomic<bool> m_bQuit{false};
};
