// Asynchronous trade-report log: writers queue one formatted line each; a
// log thread appends the queued lines to ./log/<date>-<name>.log in batches.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <ctime>
#include <queue>
#include <string>

#include "runtime/vl_sync.h"

enum LOG_DIRECTION {
    NONE = 0,
    MSGCENTER2ME_DEAL = 1,
    MSGCENTER2ME_ENTRUST = 2,
    ME2CLIENT_DEAL = 3,
    ME2CLIENT_ENTRUST = 4,
    ERROR_2 = 5,
    ERROR_3 = 6,
};

// Name text written into each line, indexed by LOG_DIRECTION.
extern const char* const map_direction_name[7];

// One queued line: len bytes of text follow the header directly.
struct LogData {
    size_t len;
};

// Time stamp text "%Y-%m-%d %H:%M:%S"; t == 0 takes now and appends ".mmm".
class time2str {
public:
    enum TFormat { UTC = 0, LOCAL = 1 };
    time2str(time_t t, TFormat format);
    operator char*() { return buf; }
    const char* c_str() const { return buf; }

private:
    char buf[26];
};

class FutuLog {
public:
    // Creates the process-wide instance; false when one exists already.
    static bool Create(const std::string& name, int interval);
    static FutuLog* GetInstancePtr();
    // Destroys the instance (stopping its thread first).
    static bool Destroy();

    bool StartLogger();
    // Ends the thread after it wrote every line still queued.
    bool StopLogger();

    // Queues one line; used by FutuWriteLog.
    void Write(LOG_DIRECTION dir, const char* text, int len);
    bool Accepting() const { return m_bUseLog && !m_bStop; }

private:
    FutuLog(const std::string& name, int interval);
    ~FutuLog();
    static void* LogFunc(void* self);
    void WriteBlocks(FILE* fp, size_t n);

    static FutuLog* m_logger;

    std::string m_szFile;
    std::queue<LogData*> m_LogQ;
    int m_iDumpInterval;
    pthread_t m_hThreadId;
    std::atomic<bool> m_bStop;
    VL::CEvent m_hEvent;
    VL::CThreadMutex m_qLocker;
    bool m_bUseLog;
    bool m_bRunning = false;  // a joinable log thread exists
};

void FutuWriteLog(LOG_DIRECTION dir, const char* text, int len);
