// The service object's base class and its two host facets (IoC, manager).
#pragma once

#include <pthread.h>

#include <atomic>
#include <map>

#include "frame/esb_message.h"
#include "frame/request_node.h"
#include "frame/service_info.h"
#include "kos/kavle2.h"

class CMessageServiceImpl;
class CMessageServiceThread;
class CRegeditServiceThread;
class CHeartBeatThread;
class CStatusControl;

// AppName#AppID of the loaded plug-in, written by OnInit.
extern char g_cAppName[256];

// A management action: fills the answer packer from the request.
typedef int (*REQ_ACTION)(CMessageServiceImpl* service, IF2UnPacker* request, IF2Packer* answer);

struct tagAction {
    REQ_ACTION lpAction;
    const char* sCaption;
};

class CMessageServiceIoC : public IIoC {
public:
    explicit CMessageServiceIoC(CMessageServiceImpl* owner) : m_lpOwner(owner) {}
    virtual ~CMessageServiceIoC() {}

    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int SetConfig(const char* name, IRCfgObj* cfg) override;
    int SetDependService(const char* id, IKnown* obj) override;

    CMessageServiceImpl* m_lpOwner;
};

class CMessageServiceMgr : public IManager {
public:
    explicit CMessageServiceMgr(CMessageServiceImpl* owner) : m_lpOwner(owner) {}
    virtual ~CMessageServiceMgr() {}

    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int ProcMngRequest(IF2UnPacker* req, IF2Packer* answer) override;
    int ProcMngAnswer(IF2UnPacker* answer) override;
    int ProcSysEvent(unsigned long event, unsigned long a, unsigned long b,
                     void (*callback)(int)) override;

    CMessageServiceImpl* m_lpOwner;
};

class CMessageServiceImpl : public IMessageService {
public:
    CMessageServiceImpl();

    // IKnown
    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override { return 1; }
    int Release() override;

    // IMessageService
    int PostMsg(IESBMessage* msg, IMessageService* from) override;
    int RegisterNextService(IMessageService* svc) override;
    int RegisterPrevService(IMessageService* svc) override;
    int RemoveService() override;
    const char* GetServiceID() override { return m_szServiceID; }
    int SetServiceID(const char* id) override;
    int GetServiceStatus() override;
    int RegisterService() override { return 0; }
    int SendSvrHeartBeat() override { return 0; }

    // Lifecycle and framework slots (order is part of the host contract).
    virtual int OnInit();
    virtual void OnStart();
    virtual void OnStop();
    virtual void OnFork() {}
    virtual void OnExit();
    virtual int SysInit() { return 0; }
    virtual int OnManager(IF2UnPacker* request, IF2Packer* answer);
    virtual ~CMessageServiceImpl();
    virtual int DealMessage(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread);
    virtual int TransferMsg(IESBMessage* msg, IMessageService* from);

    void SetInterfaceID(const char* id) { m_InterfaceID = id; }

    // Worker loop run by each CMessageServiceThread; returns 0 once m_iStop is set.
    int ThreadFunc(CMessageServiceThread* thread);
    // One registration request (function 2) along the chain.
    int RegeditFunction();

    // Subscription requests (function 620001 answers, heartbeat resend).
    int SendRequest(IF2Packer* packer);
    void AddToMap();
    int DeleteFromMap(unsigned long packetId);

    // Management actions by number.
    int mf_AddToActionList(unsigned long n, REQ_ACTION action, const char* caption);
    REQ_ACTION mf_GetAction(unsigned long n);

    IMessageService* m_lpUpService;
    IMessageService* m_lpDownService;
    CRegeditServiceThread* m_lpRegeditThread;
    CHeartBeatThread* m_pHeartBeatThread;
    CMessageServiceThread* m_lpThread;
    int m_iThreads;
    pthread_t* m_lpThreadID;
    IESBQ* m_lpMessageQueue;
    CMessageServiceIoC* m_lpIoC;
    CMessageServiceMgr* m_lpMgr;
    IRCfgObj* m_lpConfig;
    IRCfgObj* m_lpCoPub;
    const char* m_InterfaceID;
    ICfgSvr* m_lpCfgSvr;
    IESBMessageFactory* m_lpMsgFactory;
    ILogService* m_lpLogService;
    IF2PackSvr* m_lpF2PackSvr;
    ISecurity* m_lpSecurity;
    ICert* m_lpCert;
    std::atomic<int> m_iStop;  // read by the workers while the control thread sets it
    char m_szGroupName[256];
    char m_szNodeName[256];
    char m_szServerName[256];
    char m_szServiceID[256];
    CStatusControl* m_lpStatusControl;
    ServiceStatus m_ServiceStatus;
    unsigned int m_iLsatChangeTime;
    IF2UnPacker* m_pIF2UnPacker;
    IF2Packer* m_pIF2Packer;
    KAVLE2::CThreadMutex m_szSendRequestLock;
    std::map<unsigned long, tagRequestNode*> m_szSendRequestMap;
    tagRequestNode* m_pSendRequestHead;
    int m_iEnableRecvUDP;
    int m_iUDPPort;
    int m_iDealUdpHq;
    int m_iDealUdpHb;
    tagRouteInfo m_szMCRouteInfo;
    tagRouteInfo m_szHQRouteInfo;
    int m_iHeartBeatTimeout;
    int m_iEnableSubscibeToMC;
    int m_iInitTime;
    std::atomic<int> m_iInitDate;  // written by the heartbeat thread, read by the console
    int m_iSysVersion;
    int m_iUdpHqVersion;
    int m_iSaveHBLog;
    int m_convert18to33102;
    int m_convert22to16;
    int m_convert22to33100;
    int m_convert23to17;
    int m_convert23to33101;
    int m_convert24to33105;
    int m_convert33101to23;
    int m_convert33101to17;
    int m_convert33100to16;
    int m_convert33100to22;
    int m_convert33102to18;
    int m_convert33105to24;
    int m_iUDPRecvBufLen;
    // "udppollus": microseconds the datagram consumer keeps looking for the
    // next datagram before it sleeps (0: sleeps at once).
    std::atomic<int> m_iUDPPollUs;
    static constexpr int kMaxUDPPollUs = 1000;
    std::map<unsigned long, tagAction*> m_ProcReqActionList;

protected:
    // Ends the workers, the registration and the heartbeat threads; safe to
    // call more than once.
    void StopThreads();

private:
    int ReadSubscribeList(IRCfgObj* mc);
};
