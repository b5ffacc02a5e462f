// Helpers shared by the management actions: every answer is one table whose
// columns are all declared as strings of width 255 and scale 4.
#pragma once

#include <cstddef>

#include "frame/host_interfaces.h"
#include "frame/tikron_service.h"

namespace tikron_mgmt {

// Starts a new result in the packer and declares the columns in order.
void BeginTable(IF2Packer* answer, const char* const* names, size_t count);

template <size_t N>
void BeginTable(IF2Packer* answer, const char* const (&names)[N]) {
    BeginTable(answer, names, N);
}

// Adds a fixed-width record text field: at most cap bytes are read, so a
// field filled to its last byte (no terminator) never reads past the field.
void AddField(IF2Packer* answer, const char* field, size_t cap);

template <size_t N>
void AddField(IF2Packer* answer, const char (&field)[N]) {
    AddField(answer, field, N);
}

// Adds a counter as the 32-bit integer the console shows (wraps like the
// 32-bit counters the console always displayed).
void AddCount(IF2Packer* answer, unsigned long long value);

// The concrete service behind an action's argument; null for any other
// service class (the actions then answer their columns without rows).
CTIKRONServiceImpl* Tikron(CMessageServiceImpl* service);

// Holds a mutex (Acquire/Release) for a scope.
template <typename Mutex>
class ScopedAcquire {
public:
    explicit ScopedAcquire(Mutex& m) : m_mutex(m) { m_mutex.Acquire(); }
    ~ScopedAcquire() { m_mutex.Release(); }
    ScopedAcquire(const ScopedAcquire&) = delete;
    ScopedAcquire& operator=(const ScopedAcquire&) = delete;

private:
    Mutex& m_mutex;
};

// Holds a quote table's map lock for a whole dump; a null table is skipped.
template <typename Table>
class TableLock {
public:
    explicit TableLock(Table* table) : m_table(table) {
        if (m_table != nullptr) m_table->LockMap();
    }
    ~TableLock() {
        if (m_table != nullptr) m_table->UnlockMap();
    }
    TableLock(const TableLock&) = delete;
    TableLock& operator=(const TableLock&) = delete;

private:
    Table* m_table;
};

}  // namespace tikron_mgmt
