#include "runtime/futu_log.h"

#include <sys/stat.h>
#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

const char* const map_direction_name[7] = {
    "0_unused",           "1_msgcenter2me_deal", "2_msgcenter2me_entrust", "3_me2client_deal",
    "4_me2client_entrust", "5_ERROR_2_deal",      "6_ERROR_3_entrust",
};

FutuLog* FutuLog::m_logger = nullptr;

namespace {
// Frees the instance when the library is unloaded or the process ends, after
// its thread wrote what was still queued.
struct LoggerReaper {
    ~LoggerReaper() { FutuLog::Destroy(); }
} g_reaper;
}  // namespace

time2str::time2str(time_t t, TFormat format) {
    memset(buf, 0, sizeof(buf));
    struct tm tmv;
    if (t != 0) {
        if (format == LOCAL) localtime_r(&t, &tmv);
        else gmtime_r(&t, &tmv);
        strftime(buf, sizeof(buf), "%Y-%m-%d %H:%M:%S", &tmv);
        return;
    }
    struct timeval now;
    gettimeofday(&now, nullptr);
    time_t secs = now.tv_sec;
    if (format == LOCAL) localtime_r(&secs, &tmv);
    else gmtime_r(&secs, &tmv);
    char base[20];
    strftime(base, sizeof(base), "%Y-%m-%d %H:%M:%S", &tmv);
    snprintf(buf, sizeof(buf), "%s.%03d", base, static_cast<int>(now.tv_usec / 1000));
}

FutuLog::FutuLog(const std::string& name, int interval)
    : m_szFile(name),
      m_iDumpInterval(interval * 1000),
      m_hThreadId(0),
      m_bStop(false),
      m_hEvent(false),
      m_bUseLog(true) {}

FutuLog::~FutuLog() {
    StopLogger();
    while (!m_LogQ.empty()) {
        free(m_LogQ.front());
        m_LogQ.pop();
    }
}

bool FutuLog::Create(const std::string& name, int interval) {
    if (m_logger != nullptr) return false;
    m_logger = new FutuLog(name, interval);
    return true;
}

FutuLog* FutuLog::GetInstancePtr() { return m_logger; }

bool FutuLog::Destroy() {
    delete m_logger;
    m_logger = nullptr;
    return true;
}

bool FutuLog::StartLogger() {
    if (!m_bUseLog || m_bRunning) return true;
    m_bStop = false;
    // Joinable, so StopLogger can wait for the final batch.
    if (pthread_create(&m_hThreadId, nullptr, LogFunc, this) != 0) {
        fprintf(stderr, "FutuLog: cannot start the log thread\n");
        return false;
    }
    m_bRunning = true;
    return true;
}

bool FutuLog::StopLogger() {
    if (!m_bUseLog || !m_bRunning) return true;
    m_bStop = true;
    m_hEvent.Set();
    pthread_join(m_hThreadId, nullptr);
    m_bRunning = false;
    return true;
}

void FutuLog::Write(LOG_DIRECTION dir, const char* text, int len) {
    if (!Accepting() || text == nullptr) return;
    if (len < 1) len = static_cast<int>(strlen(text));
    const size_t size = static_cast<size_t>(len) + 79;
    char* block = static_cast<char*>(calloc(1, size));
    if (block == nullptr) return;
    char* line = block + sizeof(size_t);
    time2str stamp(0, time2str::LOCAL);
    int header;
    if (dir != NONE && dir >= 0 && dir <= ERROR_3) {
        const char* name = map_direction_name[dir];
        header = snprintf(line, 70, "%s[%d]%s[%d]", stamp.c_str(), static_cast<int>(strlen(name)), name, len);
    } else {
        header = snprintf(line, 70, "%s[%d]", stamp.c_str(), len);
    }
    if (header < 0) header = 0;
    if (header > 69) header = 69;  // snprintf wrote at most 69 characters
    memcpy(line + header, text, static_cast<size_t>(len));
    line[header + len] = '\n';
    reinterpret_cast<LogData*>(block)->len = static_cast<size_t>(header) + static_cast<size_t>(len) + 1;
    m_qLocker.Acquire();
    m_LogQ.push(reinterpret_cast<LogData*>(block));
    m_qLocker.Release();
}

void FutuLog::WriteBlocks(FILE* fp, size_t n) {
    m_qLocker.Acquire();
    for (size_t i = 0; i < n && !m_LogQ.empty(); ++i) {
        LogData* data = m_LogQ.front();
        m_LogQ.pop();
        fwrite(reinterpret_cast<char*>(data) + sizeof(size_t), 1, data->len, fp);
        free(data);
    }
    m_qLocker.Release();
}

void* FutuLog::LogFunc(void* self) {
    FutuLog* log = static_cast<FutuLog*>(self);
    mkdir("./log", 0777);
    time_t now = time(nullptr);
    struct tm tmv;
    localtime_r(&now, &tmv);
    char path[260];
    snprintf(path, sizeof(path), "%s%s%04d-%02d-%02d-%s.log", "./log", "/", tmv.tm_year + 1900,
             tmv.tm_mon + 1, tmv.tm_mday, log->m_szFile.c_str());
    FILE* fp = fopen(path, "ab");
    if (fp == nullptr) return nullptr;
    while (!log->m_bStop) {
        log->m_hEvent.Wait(log->m_iDumpInterval);
        log->m_qLocker.Acquire();
        size_t n = log->m_LogQ.size();
        log->m_qLocker.Release();
        log->WriteBlocks(fp, n);
        fflush(fp);
    }
    log->m_hEvent.Reset();
    log->m_qLocker.Acquire();
    size_t rest = log->m_LogQ.size();
    log->m_qLocker.Release();
    log->WriteBlocks(fp, rest);
    fflush(fp);
    fclose(fp);
    log->m_hEvent.Set();
    return nullptr;
}

void FutuWriteLog(LOG_DIRECTION dir, const char* text, int len) {
    FutuLog* log = FutuLog::GetInstancePtr();
    if (log == nullptr) return;
    log->Write(dir, text, len);
}
