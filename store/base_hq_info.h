// Keyed table of the latest quote per key, mirrored slot by slot into a
// snapshot file of the day so a restart on the same day finds the quotes.
//
// File: a 16-byte tagHQFileHead, then one tagSaveHQInfo<T> slot per key in
// order of first arrival (slot k at 16 + (k-1) * sizeof slot). An update of an
// existing key is copied into its slot through a journalled shared mapping
// before AddHQInfo returns (no system call); a new key appends its slot and
// rewrites the header. The file is current for other processes and survives
// a kill of this one without torn slots (store/snapshot_mirror.cpp).
#pragma once

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "frame/host_interfaces.h"
#include "runtime/vl_sync.h"
#include "store/key_index.h"
#include "store/map_key.h"
#include "wire/quote_records.h"
#include "store/snapshot_file.h"
#include "store/snapshot_mirror.h"
#include "wire/field_reader.h"
#include "wire/field_reader_fast.h"

// Key text of a record: the record's first field, viewed as text.
template <typename T>
struct DefaultBaseHQInfoTraits {
    static const char* GetKey(const T& rec) { return reinterpret_cast<const char*>(&rec); }
};

template <typename T>
struct ExchStatusInfoTraits {
    static const char* GetKey(const T& rec) { return reinterpret_cast<const char*>(&rec); }
};

enum { TIKRON_STORE_LOG_CODE = 15006 };

template <typename T, typename Traits = DefaultBaseHQInfoTraits<T>>
class CBaseHQInfo {
public:
    typedef tagSaveHQInfo<T> SaveType;
    typedef std::map<CMapKey, SaveType*> MapType;
    static constexpr size_t kSlotSize = sizeof(SaveType);
    static constexpr size_t kHeadSize = sizeof(tagHQFileHead);

    explicit CBaseHQInfo(const char* pszPath) {
        std::memset(m_cHQDBPath, 0, sizeof m_cHQDBPath);
        if (pszPath != nullptr) {
            // Bounded copy: paths longer than the field are cut, never overrun.
            std::memcpy(m_cHQDBPath, pszPath, strnlen(pszPath, sizeof m_cHQDBPath - 1));
        }
        std::memset(&m_szHQFileHead, 0, sizeof m_szHQFileHead);
        LoadFromFile();
    }

    virtual int GetHQFromData(const char* pData, int iLen, T* pRec) = 0;

    virtual ~CBaseHQInfo() {
        DeleteAll();
        VL::CAutoLock lock(m_maplock);
        m_file.Close();
        m_file.RemoveJournal();  // the emptied file has nothing in flight
    }

    CBaseHQInfo(const CBaseHQInfo&) = delete;
    CBaseHQInfo& operator=(const CBaseHQInfo&) = delete;

    void SetLogService(ILogService* pLog) { m_lpLogService = pLog; }
    ILogService* GetLogService() const { return m_lpLogService; }
    const char* GetPath() const { return m_cHQDBPath; }

    // Parses one datagram (type char, 5-digit length, text from position 6)
    // and stores the record; pRec receives it. 0 also for another type; -2
    // for a datagram shorter than its header or than its declared length,
    // -3 when a field fails (logged).
    int AddHQData(const char* pData, int iLen, T* pRec, char cType, int /*iReserved*/) {
        if (pData == nullptr || pRec == nullptr) return -2;
        if (iLen < 6) return -2;
        char szLen[6] = {0};
        std::memcpy(szLen, pData + 1, 5);
        int iDeclared = tikron_fields::LengthFieldValue(szLen);
        const char* pText = pData + 6;
        size_t avail = static_cast<size_t>(iLen - 6);
        size_t textLen = strnlen(pText, avail);
        if (iDeclared > 0 && static_cast<size_t>(iDeclared) > textLen) return -2;
        if (pData[0] != cType) {
            Log("CBaseHQInfo::AddHQData", "不是行情处理的信息, 类型: %c!\n", pData[0]);
            return 0;
        }
        int n = (cType == 'A') ? iDeclared : iDeclared - 17;
        int ret;
        if (textLen < avail) {
            ret = GetHQFromData(pText, n, pRec);
        } else {
            // The readers need a terminated text; give them a bounded copy.
            std::string copy(pText, textLen);
            ret = GetHQFromData(copy.c_str(), n, pRec);
        }
        if (ret != 0) {
            Log("CBaseHQInfo::AddHQData", "get hq from data fail, error code: %d!\n", ret);
            return -3;
        }
        return 0;
    }

    // Inserts or overwrites the record under its key. Source 0 UDP, 1 message
    // center, anything else other. 0, -1 null record, -2 allocation failure.
    int AddHQInfo(const T* pRec, int iSource) {
        m_dwRecvNum.fetch_add(1, std::memory_order_relaxed);
        if (pRec == nullptr) return -1;
        VL::CAutoLock lock(m_maplock);
        char szKey[32];
        if (SaveType* pOld = m_index.Find(KeyText(*pRec, szKey))) {
            std::memcpy(&pOld->szHQInfo, pRec, sizeof(T));
            WriteToFile(pOld, 0);
        } else {
            const CMapKey key(szKey);
            SaveType* pSave = new (std::nothrow) SaveType;
            if (pSave == nullptr) {
                Log("CBaseHQInfo::AddHQInfo", "new T fail!");
                return -2;
            }
            std::memset(pSave, 0, sizeof(SaveType));
            std::memcpy(&pSave->szHQInfo, pRec, sizeof(T));
            try {
                m_slotEntries.reserve(static_cast<size_t>(m_iSlotsUsed) + 1);
                Insert(key, pSave);
            } catch (...) {
                delete pSave;
                Log("CBaseHQInfo::AddHQInfo", "new T fail!");
                return -2;
            }
            pSave->iRecordNo = NextSlotNo();
            pSave->iCrc = pSave->iRecordNo;
            m_slotEntries.push_back(pSave);  // capacity reserved above
            WriteToFile(pSave, 1);
            Log("CBaseHQInfo::AddHQInfo", "加入合约: %s!\n", key.GetKey());
        }
        if (iSource == 0)
            m_dwRecvFromUDPNum.fetch_add(1, std::memory_order_relaxed);
        else if (iSource == 1)
            m_dwRecvFromMCNum.fetch_add(1, std::memory_order_relaxed);
        else
            m_dwRecvFromOtherNum.fetch_add(1, std::memory_order_relaxed);
        return 0;
    }

    // Looks up by the key inside pRec; on a hit copies the stored record into
    // it and returns 1; 0 when absent (pRec untouched), -1 for null.
    int GetHQInfo(T* pRec) {
        if (pRec == nullptr) return -1;
        VL::CAutoLock lock(m_maplock);
        char szKey[32];
        const SaveType* pSave = m_index.Find(KeyText(*pRec, szKey));
        if (pSave == nullptr) return 0;
        std::memcpy(pRec, &pSave->szHQInfo, sizeof(T));
        return 1;
    }

    // Iteration requires LockMap() held for the whole walk. For walking
    // only: keys are added and removed by the table, which keeps its index.
    MapType& GetHQMap() { return m_szHQInfoMap; }
    void LockMap() { m_maplock.Acquire(); }
    void UnlockMap() { m_maplock.Release(); }

    // Empties the table and truncates the snapshot file to zero length.
    void DeleteAll() {
        VL::CAutoLock lock(m_maplock);
        // Done under the lock (unlike a bare close/reopen) so no concurrent
        // update can write through a descriptor being replaced.
        m_file.Close();
        int err = m_file.Open(m_cHQDBPath, false);
        if (err != 0) Log("CBaseHQInfo::DeleteAll", "打开文件: %s 失败, 错误代码: %d!\n", m_cHQDBPath, err);
        LogMapFailure();
        m_bHeadOnDisk = false;
        m_iSlotsUsed = 0;
        ClearEntries();
        m_dwRecvNum.store(0, std::memory_order_relaxed);
        m_dwRecvFromUDPNum.store(0, std::memory_order_relaxed);
        m_dwRecvFromMCNum.store(0, std::memory_order_relaxed);
        m_dwRecvFromOtherNum.store(0, std::memory_order_relaxed);
    }

    // Key texts of all entries in key order (used with the exchange table).
    void GetAllExch(std::vector<std::string>& out) {
        out.clear();
        VL::CAutoLock lock(m_maplock);
        out.reserve(m_szHQInfoMap.size());
        for (auto& kv : m_szHQInfoMap) out.emplace_back(kv.first.GetKey());
    }

    size_t GetCount() {
        VL::CAutoLock lock(m_maplock);
        return m_szHQInfoMap.size();
    }

    uint64_t GetRecvNum() const { return m_dwRecvNum.load(std::memory_order_relaxed); }
    uint64_t GetRecvFromUDPNum() const { return m_dwRecvFromUDPNum.load(std::memory_order_relaxed); }
    uint64_t GetRecvFromMCNum() const { return m_dwRecvFromMCNum.load(std::memory_order_relaxed); }
    uint64_t GetRecvFromOtherNum() const { return m_dwRecvFromOtherNum.load(std::memory_order_relaxed); }
    tagHQFileHead GetFileHead() {
        VL::CAutoLock lock(m_maplock);
        return m_szHQFileHead;
    }

    // Writes an entry's slot; with iNew == 1 the entry is a new key and the
    // header's count follows. Caller holds the table lock. 0 ok, -1 no entry
    // or no file, -2 slot write failed, -3 header write failed.
    int WriteToFile(SaveType* pSave, int iNew) {
        if (pSave == nullptr || !m_file.IsOpen()) return -1;
        uint64_t today = static_cast<uint64_t>(TodayCached());
        bool headDirty = !m_bHeadOnDisk || m_szHQFileHead.ulTime != today;
        m_szHQFileHead.ulTime = today;
        if (iNew == 1) {
            m_szHQFileHead.dwCount = static_cast<uint64_t>(m_iSlotsUsed);
            headDirty = true;
        }
        if (pSave->iRecordNo < 1) return -2;
        const uint64_t slot = static_cast<uint64_t>(pSave->iRecordNo);
        if (slot <= m_file.SlotsInFile()) {
            if (m_file.WriteSlot(slot, pSave) != 0) {
                LogWriteFailure(errno);
                return -2;
            }
        } else {
            // Append every slot the file lacks, in order: after a failed
            // append (full disk) the next one fills the gap, so the file
            // never gets a hole of zeros.
            for (uint64_t s = m_file.SlotsInFile() + 1; s <= slot; ++s) {
                const SaveType* pOne = s == slot ? pSave : SlotEntry(s);
                if (pOne == nullptr) {
                    LogWriteFailure(EINVAL);
                    return -2;
                }
                if (m_file.AppendSlot(s, pOne) != 0) {
                    LogWriteFailure(errno);
                    return -2;
                }
            }
            LogMapFailure();
        }
        if (headDirty) {
            if (m_file.WriteHead(&m_szHQFileHead) != 0) {
                LogWriteFailure(errno);
                return -3;
            }
            m_bHeadOnDisk = true;
        }
        return 0;
    }

    // Loads today's snapshot (if the file carries today's date) and leaves
    // the file open for updates; any other file is replaced by an empty one.
    int LoadFromFile() {
        bool bLoaded = false;
        // An update cut by a kill is completed from the journal first.
        const int replayed = tikron_store::SnapshotMirror::ReplayJournal(m_cHQDBPath, kHeadSize, kSlotSize);
        if (replayed > 0) m_ullJournalReplays.fetch_add(1, std::memory_order_relaxed);
        if (replayed < 0) {
            Log("CBaseHQInfo::LoadFromFile", "写文件%s失败, 错误代码: %d!\n", m_cHQDBPath, errno);
        }
        tikron_store::SnapshotFile in;
        if (in.OpenRead(m_cHQDBPath) != 0) {
            Log("CBaseHQInfo::LoadFromFile", "tikron.db文件不存在!");
        } else {
            tagHQFileHead head;
            std::memset(&head, 0, sizeof head);
            long got = in.ReadFull(&head, kHeadSize);
            if (got != static_cast<long>(kHeadSize)) std::memset(&head, 0, sizeof head);
            unsigned long today = static_cast<unsigned long>(GetDate());
            if (head.ulTime != today) {
                Log("CBaseHQInfo::LoadFromFile", "当前日期: %lu, 文件中日期: %lu, 不需要从文件中读取!\n", today,
                    static_cast<unsigned long>(head.ulTime));
            } else {
                bLoaded = LoadSlots(in, head);
            }
            in.Close();
        }
        VL::CAutoLock lock(m_maplock);
        int err = m_file.Open(m_cHQDBPath, bLoaded);
        if (err != 0) {
            Log("CBaseHQInfo::LoadFromFile", "打开文件: %s 失败, 错误代码: %d!\n", m_cHQDBPath, err);
        }
        LogMapFailure();
        m_bHeadOnDisk = bLoaded && err == 0;
        return 0;
    }

    // Snapshot file figures since construction: failed writes, fallbacks
    // from the mapped file to positioned writes, journal entries replayed.
    uint64_t GetWriteFailures() const { return m_ullWriteFailures.load(std::memory_order_relaxed); }
    uint64_t GetMapFallbacks() const { return m_ullMapFallbacks.load(std::memory_order_relaxed); }
    uint64_t GetJournalReplays() const { return m_ullJournalReplays.load(std::memory_order_relaxed); }

    // Counters (statistics; read them through the getters above).
    std::atomic<uint64_t> m_dwRecvNum{0};
    std::atomic<uint64_t> m_dwRecvFromUDPNum{0};
    std::atomic<uint64_t> m_dwRecvFromMCNum{0};
    std::atomic<uint64_t> m_dwRecvFromOtherNum{0};

protected:
    // Writes one line through the host log service, if any.
    void Log(const char* pszFunc, const char* pszFmt, ...) __attribute__((format(printf, 3, 4))) {
        ILogService* pLog = m_lpLogService;
        if (pLog == nullptr) return;
        char buf[2048];
        va_list ap;
        va_start(ap, pszFmt);
        std::vsnprintf(buf, sizeof buf, pszFmt, ap);
        va_end(ap);
        pLog->AddLog(pszFunc, TIKRON_STORE_LOG_CODE, buf);
    }

private:

    // Key text of a record in a 32-byte scratch: the copy is bounded by the
    // scratch and by the record so an unterminated field cannot overrun.
    static std::string_view KeyText(const T& rec, char (&szKey)[32]) {
        const char* p = Traits::GetKey(rec);
        size_t maxLen = sizeof szKey - 1;
        if (maxLen > sizeof(T)) maxLen = sizeof(T);
        const size_t n = strnlen(p, maxLen);
        std::memcpy(szKey, p, n);
        szKey[n] = '\0';
        return std::string_view(szKey, n);
    }

    static CMapKey MakeKey(const T& rec) {
        char szKey[32];
        KeyText(rec, szKey);
        return CMapKey(szKey);
    }

    // New keys take the next free slot. For files we wrote this is the table
    // size after insertion; a loaded file with repeated keys keeps counting
    // its slots so that no two keys ever share one.
    int NextSlotNo() { return ++m_iSlotsUsed; }

    // Entry written to slot s (1-based), or null for a slot of the loaded
    // file whose key was taken over by a later slot.
    const SaveType* SlotEntry(uint64_t s) const {
        return s >= 1 && s <= m_slotEntries.size() ? m_slotEntries[s - 1] : nullptr;
    }

    void LogMapFailure() {
        int err = m_file.TakeMapError();
        if (err == 0) return;
        m_ullMapFallbacks.fetch_add(1, std::memory_order_relaxed);
        if (m_lpLogService == nullptr) return;
        uint64_t suppressed = 0;
        if (!m_mapLimiter.Allow(suppressed)) return;
        Log("CBaseHQInfo::WriteToFile", "映射文件%s失败, 错误代码: %d, 改为逐笔写文件!\n", m_cHQDBPath, err);
    }

    int TodayCached() {
        time_t now = time(nullptr);
        if (now != m_tDateSec || m_iDate == 0) {
            m_tDateSec = now;
            m_iDate = GetDate();
        }
        return m_iDate;
    }

    void LogWriteFailure(int err) {
        m_ullWriteFailures.fetch_add(1, std::memory_order_relaxed);
        if (m_lpLogService == nullptr) return;  // keep the first line for when a log is set
        uint64_t suppressed = 0;
        if (!m_writeLimiter.Allow(suppressed)) return;
        Log("CBaseHQInfo::WriteToFile", "写文件%s失败, 错误代码: %d, 此前未记录的失败: %llu!\n", m_cHQDBPath, err,
            static_cast<unsigned long long>(suppressed));
    }

    bool LoadSlots(tikron_store::SnapshotFile& in, const tagHQFileHead& head) {
        bool bOk = true;
        int iInserted = 0;
        {
            VL::CAutoLock lock(m_maplock);
            int slot = 0;
            for (;;) {
                SaveType rec;
                long got = in.ReadFull(&rec, kSlotSize);
                if (got < 0) {
                    Log("CBaseHQInfo::LoadFromFile", "读文件%s失败, 错误代码: %d!\n", m_cHQDBPath, errno);
                    bOk = false;
                    break;
                }
                if (got < static_cast<long>(kSlotSize)) break;  // end of file, maybe a partial slot
                ++slot;
                SaveType* pSave = new (std::nothrow) SaveType(rec);
                if (pSave == nullptr) {
                    Log("CBaseHQInfo::AddHQInfo", "new T fail!");
                    bOk = false;
                    break;
                }
                // Slots keep their stored number; a damaged one is replaced by
                // the slot's real position so later writes stay in the file.
                if (pSave->iRecordNo != slot) pSave->iRecordNo = slot;
                CMapKey key = MakeKey(pSave->szHQInfo);
                try {
                    m_slotEntries.reserve(static_cast<size_t>(slot));
                    auto it = m_szHQInfoMap.find(key);
                    if (it != m_szHQInfoMap.end()) {
                        // A key seen twice keeps the later slot.
                        const int iOld = it->second->iRecordNo;
                        if (iOld >= 1 && static_cast<size_t>(iOld) <= m_slotEntries.size())
                            m_slotEntries[static_cast<size_t>(iOld) - 1] = nullptr;
                        delete it->second;
                        it->second = pSave;
                        m_index.Assign(std::string_view(it->first.GetKey()), pSave);
                    } else {
                        Insert(key, pSave);
                        ++iInserted;
                    }
                    m_slotEntries.push_back(pSave);  // capacity reserved above
                } catch (...) {
                    delete pSave;
                    Log("CBaseHQInfo::AddHQInfo", "new T fail!");
                    bOk = false;
                    break;
                }
            }
            if (bOk) {
                m_szHQFileHead = head;
                m_iSlotsUsed = slot;
            } else {
                // An unreadable file is discarded: start empty with a fresh one.
                ClearEntries();
                m_iSlotsUsed = 0;
                iInserted = 0;
            }
        }
        if (bOk) Log("CBaseHQInfo::LoadFromFile", "从文件%s中读出: %d 笔行情!", m_cHQDBPath, iInserted);
        return bOk;
    }

    // Adds a new key to the map and the index; either both or, when memory
    // runs out (std::bad_alloc propagates), neither.
    void Insert(const CMapKey& key, SaveType* pSave) {
        auto it = m_szHQInfoMap.emplace(key, pSave).first;
        try {
            m_index.Insert(std::string_view(it->first.GetKey()), it->first.GetKey(), pSave);
        } catch (...) {
            m_szHQInfoMap.erase(it);
            throw;
        }
    }

    void ClearEntries() {
        for (auto& kv : m_szHQInfoMap) delete kv.second;
        m_index.Clear();
        m_szHQInfoMap.clear();
        m_slotEntries.clear();
    }

    ILogService* m_lpLogService = nullptr;
    char m_cHQDBPath[1024];
    MapType m_szHQInfoMap;
    // Hash index over the same entries (long keys point at the map's own
    // key texts; map nodes never move). The ordered map stays the one that
    // is walked: dumps, queries and sync answers list keys in order.
    tikron_store::KeyIndex<SaveType> m_index;
    VL::CThreadMutex m_maplock;
    tikron_store::SnapshotMirror m_file{kHeadSize, kSlotSize};
    std::vector<SaveType*> m_slotEntries;  // slot k's entry at k-1; not owning
    tagHQFileHead m_szHQFileHead;
    bool m_bHeadOnDisk = false;
    int m_iSlotsUsed = 0;
    time_t m_tDateSec = 0;
    int m_iDate = 0;
    std::atomic<uint64_t> m_ullWriteFailures{0};
    std::atomic<uint64_t> m_ullMapFallbacks{0};
    std::atomic<uint64_t> m_ullJournalReplays{0};
    tikron_store::FailureLogLimiter m_writeLimiter;
    tikron_store::FailureLogLimiter m_mapLimiter;
};
