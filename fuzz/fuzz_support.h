// Shared pieces of the fuzz targets: a private working directory, a log
// service that checks and discards lines, a neighbour that checks every
// published message and releases it, and a fatal check that always fires.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "frame/host_interfaces.h"

namespace fuzzsupport {

// Reports the broken property and aborts (the fuzzer then keeps the input).
#define FUZZ_CHECK(expr) ::fuzzsupport::Check((expr), #expr, __FILE__, __LINE__)
void Check(bool ok, const char* what, const char* file, int line);

// A fresh directory under /tmp, created once per process, for the files the
// targets create. The current directory is left alone: libFuzzer reads its
// corpus and writes its findings by the paths it was given.
const std::string& WorkDir();

// Every line must be a terminated text of sane length; lines are counted
// and dropped so that memory stays flat over millions of inputs.
class CheckingLog final : public ILogService {
public:
    int QueryInterface(const char*, IKnown** out) override;
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int AddLog(const char* function, int code, const char* text) override;
    uint64_t Lines() const { return m_lines.load(); }

private:
    std::atomic<uint64_t> m_lines{0};
};

// A neighbour that reads every message it receives through the host
// encoding, checks that a packed body (item 8) and a key (item 54) decode,
// then releases the message. Refuse mode returns 1 and keeps nothing.
class CheckingNeighbour final : public IMessageService {
public:
    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int PostMsg(IESBMessage* msg, IMessageService* from) override;
    int RegisterNextService(IMessageService*) override { return 0; }
    int RegisterPrevService(IMessageService*) override { return 0; }
    int RemoveService() override { return 0; }
    const char* GetServiceID() override { return "fuzz_neighbour"; }
    int SetServiceID(const char*) override { return 0; }
    int GetServiceStatus() override { return 7; }
    int RegisterService() override { return 0; }
    int SendSvrHeartBeat() override { return 0; }

    void SetRefuse(bool on) { m_refuse = on; }
    uint64_t Count() const { return m_count.load(); }

private:
    std::atomic<bool> m_refuse{false};
    std::atomic<uint64_t> m_count{0};
};

// Copies bytes into a heap block of exactly n + 1 bytes ending in NUL, so a
// read past the text is caught by the address sanitizer.
class TextBlock {
public:
    TextBlock(const uint8_t* data, size_t n);
    ~TextBlock();
    TextBlock(const TextBlock&) = delete;
    TextBlock& operator=(const TextBlock&) = delete;
    char* Get() const { return m_p; }
    int Len() const { return m_len; }

private:
    char* m_p;
    int m_len;
};

// Writes bytes to a file (replacing it); false on failure.
bool WriteFile(const std::string& path, const uint8_t* data, size_t n);

}  // namespace fuzzsupport
