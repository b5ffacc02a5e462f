// CMessageServiceImpl: construction, facets, chain operations, base lifecycle
// and the management action table.
#include "frame/message_service.h"

#include <cstring>

#include "frame/service_threads.h"
#include "frame/status_control.h"
#include "frame/text_copy.h"
#include "runtime/futu_log.h"

char g_cAppName[256] = {0};

void FreeRequestNode(tagRequestNode* node) {
    if (node == nullptr) return;
    tagKeyInfo* key = node->pParamList;
    while (key != nullptr) {
        tagKeyInfo* next = key->m_pNext;
        delete key;
        key = next;
    }
    delete node;
}

// ---------------------------------------------------------------- facets

int CMessageServiceIoC::QueryInterface(const char* id, IKnown** out) {
    if (out == nullptr) return 0;
    *out = nullptr;
    if (id == nullptr) return 0;
    if (m_lpOwner->m_InterfaceID != nullptr && strcmp(id, m_lpOwner->m_InterfaceID) == 0) {
        *out = m_lpOwner;
        return 1;
    }
    if (strcmp(id, SID_IOC) == 0) {
        *out = this;
        return 1;
    }
    return 0;
}

int CMessageServiceIoC::SetConfig(const char* name, IRCfgObj* cfg) {
    if (cfg == nullptr || name == nullptr) return 1;
    if (strcmp(name, "plugin") == 0) {
        cfg->AddRef();
        m_lpOwner->m_lpConfig = cfg;
    } else if (strcmp(name, "pub") == 0) {
        cfg->AddRef();
        m_lpOwner->m_lpCoPub = cfg;
    }
    return 1;
}

int CMessageServiceIoC::SetDependService(const char* id, IKnown* obj) {
    if (id == nullptr) return 1;
    if (strcmp(id, SID_CFGSVR) == 0) {
        m_lpOwner->m_lpCfgSvr = static_cast<ICfgSvr*>(obj);
    } else if (strcmp(id, SID_ESBMESSAGEFACTORY) == 0) {
        m_lpOwner->m_lpMsgFactory = static_cast<IESBMessageFactory*>(obj);
        g_lpMsgFactory = m_lpOwner->m_lpMsgFactory;
    } else if (strcmp(id, SID_LOG) == 0) {
        m_lpOwner->m_lpLogService = static_cast<ILogService*>(obj);
    } else if (strcmp(id, SID_F2PACKSVR) == 0) {
        m_lpOwner->m_lpF2PackSvr = static_cast<IF2PackSvr*>(obj);
    } else if (strcmp(id, SID_SECURITY) == 0) {
        m_lpOwner->m_lpSecurity = static_cast<ISecurity*>(obj);
    }
    return 1;
}

int CMessageServiceMgr::QueryInterface(const char* id, IKnown** out) {
    if (out == nullptr) return 0;
    *out = nullptr;
    if (id == nullptr) return 0;
    if (m_lpOwner->m_InterfaceID != nullptr && strcmp(id, m_lpOwner->m_InterfaceID) == 0) {
        *out = m_lpOwner;
        return 1;
    }
    if (strcmp(id, SID_MANAGER) == 0) {
        *out = this;
        return 1;
    }
    return 0;
}

int CMessageServiceMgr::ProcMngRequest(IF2UnPacker* req, IF2Packer* answer) {
    return m_lpOwner->OnManager(req, answer);
}

int CMessageServiceMgr::ProcMngAnswer(IF2UnPacker*) { return 1; }

int CMessageServiceMgr::ProcSysEvent(unsigned long event, unsigned long, unsigned long,
                                     void (*)(int)) {
    switch (event) {
        case SYSEVENT_START: m_lpOwner->OnStart(); break;
        case SYSEVENT_STOP: m_lpOwner->OnStop(); break;
        case SYSEVENT_EXIT: m_lpOwner->OnExit(); break;
        case SYSEVENT_FORK: m_lpOwner->OnFork(); break;
        default: break;
    }
    return 1;
}

// ---------------------------------------------------------------- service

CMessageServiceImpl::CMessageServiceImpl()
    : m_lpUpService(nullptr),
      m_lpDownService(nullptr),
      m_lpRegeditThread(nullptr),
      m_pHeartBeatThread(nullptr),
      m_lpThread(nullptr),
      m_iThreads(0),
      m_lpThreadID(nullptr),
      m_lpMessageQueue(nullptr),
      m_lpIoC(nullptr),
      m_lpMgr(nullptr),
      m_lpConfig(nullptr),
      m_lpCoPub(nullptr),
      m_InterfaceID(nullptr),
      m_lpCfgSvr(nullptr),
      m_lpMsgFactory(nullptr),
      m_lpLogService(nullptr),
      m_lpF2PackSvr(nullptr),
      m_lpSecurity(nullptr),
      m_lpCert(nullptr),
      m_iStop(0),
      m_lpStatusControl(nullptr),
      m_ServiceStatus(ServiceUnInite),
      m_iLsatChangeTime(0),
      m_pIF2UnPacker(nullptr),
      m_pIF2Packer(nullptr),
      m_pSendRequestHead(nullptr),
      m_iEnableRecvUDP(0),
      m_iUDPPort(9090),
      m_iDealUdpHq(1),
      m_iDealUdpHb(1),
      m_iHeartBeatTimeout(30),
      m_iEnableSubscibeToMC(0),
      m_iInitTime(0),
      m_iInitDate(0),
      m_iSysVersion(0),
      m_iUdpHqVersion(0),
      m_iSaveHBLog(0),
      m_convert18to33102(0),
      m_convert22to16(0),
      m_convert22to33100(0),
      m_convert23to17(0),
      m_convert23to33101(0),
      m_convert24to33105(0),
      m_convert33101to23(0),
      m_convert33101to17(0),
      m_convert33100to16(0),
      m_convert33100to22(0),
      m_convert33102to18(0),
      m_convert33105to24(0),
      m_iUDPRecvBufLen(32),
      m_iUDPPollUs(0) {
    memset(m_szGroupName, 0, sizeof(m_szGroupName));
    memset(m_szNodeName, 0, sizeof(m_szNodeName));
    memset(m_szServerName, 0, sizeof(m_szServerName));
    memset(m_szServiceID, 0, sizeof(m_szServiceID));
    memset(&m_szMCRouteInfo, 0, sizeof(m_szMCRouteInfo));
    memset(&m_szHQRouteInfo, 0, sizeof(m_szHQRouteInfo));

    m_lpIoC = new CMessageServiceIoC(this);
    m_lpMgr = new CMessageServiceMgr(this);

    m_lpStatusControl = new CStatusControl(this);
    m_lpStatusControl->Status(ServiceUnInite);
    // The nine management actions are registered by the service's own
    // constructor (RegisterManagementActions), beside the table dumps.
}

CMessageServiceImpl::~CMessageServiceImpl() {
    // Threads first: they use the queue, the request map and the packers
    // that the rest of this destructor frees. The worker objects are freed
    // here too so that no thread object or packer outlives the service.
    StopThreads();
    delete[] m_lpThread;
    m_lpThread = nullptr;

    m_szSendRequestLock.Acquire();
    while (m_pSendRequestHead != nullptr) {
        tagRequestNode* next = m_pSendRequestHead->pNext;
        FreeRequestNode(m_pSendRequestHead);
        m_pSendRequestHead = next;
    }
    for (auto& entry : m_szSendRequestMap) FreeRequestNode(entry.second);
    m_szSendRequestMap.clear();
    m_szSendRequestLock.Release();

    if (m_lpMessageQueue != nullptr) m_lpMessageQueue->Release();
    m_lpMessageQueue = nullptr;
    delete[] m_lpThreadID;
    m_lpThreadID = nullptr;
    delete m_lpIoC;
    m_lpIoC = nullptr;
    delete m_lpMgr;
    m_lpMgr = nullptr;
    delete m_lpStatusControl;
    m_lpStatusControl = nullptr;
    for (auto& entry : m_ProcReqActionList) delete entry.second;
    m_ProcReqActionList.clear();

    if (FutuLog::GetInstancePtr() != nullptr) FutuLog::GetInstancePtr()->StopLogger();
}

// Ends every thread of the service; safe to call more than once.
void CMessageServiceImpl::StopThreads() {
    m_iStop = 1;
    if (m_lpThread != nullptr) {
        if (m_lpMessageQueue != nullptr) {
            for (int i = 0; i < m_iThreads; ++i) m_lpMessageQueue->PushMsg(nullptr, nullptr, 0);
        }
        // Workers poll the queue with a bounded wait, so they see m_iStop soon.
        for (int i = 0; i < m_iThreads; ++i) m_lpThread[i].Stop(-1);
    }
    delete m_lpRegeditThread;
    m_lpRegeditThread = nullptr;
    delete m_pHeartBeatThread;
    m_pHeartBeatThread = nullptr;
}

int CMessageServiceImpl::QueryInterface(const char* id, IKnown** out) {
    if (out == nullptr) return 0;
    *out = nullptr;
    if (id == nullptr) return 0;
    if (strcmp(id, SID_MESSAGESERVICE) == 0 ||
        (m_InterfaceID != nullptr && strcmp(id, m_InterfaceID) == 0)) {
        *out = this;
        return 1;
    }
    if (strcmp(id, SID_IOC) == 0) {
        *out = m_lpIoC;
        return 1;
    }
    if (strcmp(id, SID_MANAGER) == 0) {
        *out = m_lpMgr;
        return 1;
    }
    return 0;
}

int CMessageServiceImpl::Release() {
    delete this;
    return 1;
}

int CMessageServiceImpl::SetServiceID(const char* id) {
    // Bounded to the field; the host's identifiers are shorter anyway.
    CopyField(m_szServiceID, id);
    return 0;
}

int CMessageServiceImpl::GetServiceStatus() {
    return m_lpStatusControl != nullptr ? m_lpStatusControl->Status() : ServiceUnInite;
}

int CMessageServiceImpl::PostMsg(IESBMessage* msg, IMessageService* from) {
    if (m_lpMessageQueue != nullptr) m_lpMessageQueue->PushMsg(msg, from, 0);
    return 0;
}

int CMessageServiceImpl::RegisterNextService(IMessageService* svc) {
    m_lpUpService = svc;
    return 0;
}

int CMessageServiceImpl::RegisterPrevService(IMessageService* svc) {
    m_lpDownService = svc;
    return 0;
}

int CMessageServiceImpl::RemoveService() {
    if (m_lpUpService != nullptr) m_lpUpService->RegisterPrevService(m_lpDownService);
    if (m_lpDownService != nullptr) m_lpDownService->RegisterNextService(m_lpUpService);
    return 0;
}

int CMessageServiceImpl::TransferMsg(IESBMessage* msg, IMessageService* from) {
    IMessageService* target = nullptr;
    if (from == nullptr) {
        target = m_lpDownService != nullptr ? m_lpDownService : m_lpUpService;
    } else if (from == m_lpUpService) {
        target = m_lpDownService;
    } else if (from == m_lpDownService) {
        target = m_lpUpService;
    }
    if (target == nullptr || msg == nullptr) return 100;

    IESBMessageItem* stamp = msg->GetItem(TAG_PATH_STAMP);
    if (stamp != nullptr) {
        stamp->SetString(m_szServiceID, 2);
        stamp->SetString(m_szServerName, 1);
    }
    int r = target->PostMsg(msg, this);
    if (r == 0) __atomic_fetch_add(&g_ulReleaseESBNum, 1UL, __ATOMIC_RELAXED);
    return r;
}

int CMessageServiceImpl::ThreadFunc(CMessageServiceThread* thread) {
    while (m_iStop == 0) {
        if (m_lpMessageQueue == nullptr) break;
        IMessageService* from = nullptr;
        IESBMessage* msg = m_lpMessageQueue->PopMsg(40, &from, 0);
        if (msg == nullptr) continue;
        __atomic_fetch_add(&g_ulGetESBNum, 1UL, __ATOMIC_RELAXED);
        DealMessage(msg, from, thread);
    }
    return 0;
}

int CMessageServiceImpl::DealMessage(IESBMessage* msg, IMessageService*, CMessageServiceThread*) {
    ReleaseESBMsgEx(msg);
    return 0;
}

int CMessageServiceImpl::RegeditFunction() {
    IESBMessage* msg = GetESBMsgEx(__LINE__);
    if (msg == nullptr) return 0;
    msg->Prepare(2, 2);
    int r = TransferMsg(msg, nullptr);
    if (r != 0) ReleaseESBMsgEx(msg);
    return r;
}

void CMessageServiceImpl::OnStart() {
    if (m_lpThread != nullptr && m_lpThreadID != nullptr) {
        for (int i = 0; i < m_iThreads; ++i) {
            m_lpThread[i].Start();
            m_lpThreadID[i] = m_lpThread[i].GetId();
        }
    }
    if (m_lpRegeditThread != nullptr) {
        m_lpRegeditThread->m_lpLogService = m_lpLogService;
        m_lpRegeditThread->Start();
    }
    if (m_pHeartBeatThread != nullptr) m_pHeartBeatThread->Start();
}

void CMessageServiceImpl::OnStop() {
    // Wakes every worker with an empty message and waits for it to leave
    // its loop, then deletes the registration and heartbeat threads.
    StopThreads();
}

void CMessageServiceImpl::OnExit() {
    if (m_pIF2UnPacker != nullptr) m_pIF2UnPacker->Release();
    m_pIF2UnPacker = nullptr;
    if (m_pIF2Packer != nullptr) {
        m_pIF2Packer->FreeMem(m_pIF2Packer->GetPackBuf());
        // The packer object itself is given back too, not only its buffer.
        m_pIF2Packer->Release();
        m_pIF2Packer = nullptr;
    }
}

int CMessageServiceImpl::OnManager(IF2UnPacker* request, IF2Packer* answer) {
    if (request == nullptr) return -1;
    REQ_ACTION action = mf_GetAction(static_cast<unsigned long>(request->GetInt("function_id")));
    if (action == nullptr) return -1;
    return action(this, request, answer);
}

int CMessageServiceImpl::mf_AddToActionList(unsigned long n, REQ_ACTION action, const char* caption) {
    tagAction* entry = new tagAction{action, caption};
    auto it = m_ProcReqActionList.find(n);
    if (it != m_ProcReqActionList.end()) {
        delete it->second;
        it->second = entry;
    } else {
        m_ProcReqActionList[n] = entry;
    }
    return 0;
}

REQ_ACTION CMessageServiceImpl::mf_GetAction(unsigned long n) {
    auto it = m_ProcReqActionList.find(n);
    return it == m_ProcReqActionList.end() ? nullptr : it->second->lpAction;
}
