// The tikron service: quote tables, UDP ingest, message dispatch and every
// handler. Handlers live in files named after their function or record type.
#pragma once

#include <pthread.h>

#include <atomic>
#include <mutex>

#include "frame/ingest_stats.h"
#include "frame/message_service.h"
#include "frame/scratch_records.h"
#include "frame/service_threads.h"
#include "runtime/message_queue.h"

class CTIKRONInfo;
class CTIKRONInfo_EX;
class CTIKRONARGInfo;
class CExchStatusInfo;

class CTIKRONServiceImpl : public CMessageServiceImpl {
public:
    CTIKRONServiceImpl();
    ~CTIKRONServiceImpl() override;

    int OnInit() override;
    void OnStart() override;
    void OnStop() override;
    void OnExit() override;
    int SysInit() override;
    int DealMessage(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread) override;

    CTIKRONInfo* GetTIKRONInfo() { return m_pTIKRONInfo; }
    CTIKRONInfo_EX* GetTIKRONInfo_EX() { return m_pTIKRONInfo_EX; }
    CTIKRONARGInfo* GetTIKRONARGInfo() { return m_pTIKRONARGInfo; }
    CExchStatusInfo* GetExchStatusInfo() { return m_pFUTUExchStatusInfo; }

    // --- Quote queries: 620200 DealTIKRON, 620201 DealTIKRONARG,
    //     620205 DealTIKRON_EX, 620207 DealFUTUEXCHSTATUS.
    //     Return 0 when the request was answered and passed on.
    int DealTIKRON(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread);
    int DealTIKRONARG(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread);
    int DealTIKRON_EX(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread);
    int DealFUTUEXCHSTATUS(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread);

    // --- Table synchronisation between nodes: 620202 single-leg,
    //     620203 arbitrage, 620204 extended single-leg, 620206 exchange status.
    //     Requests answer and release the message themselves.
    int DealHQSyncRequest(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread);
    int DealHQSyncAnswer(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread);
    int DealARGHQSyncRequest(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread);
    int DealARGHQSyncAnswer(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread);
    int DealHQSyncRequest_ex(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread);
    int DealHQSyncAnswer_ex(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread);
    int DealExchStatusSyncRequest(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread);
    int DealExchStatusSyncAnswer(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread);

    // --- Publications (620003): quote intake, then format conversion.
    int DealTIKRONIssue(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread);
    int DealFUTUIssueeConvert(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread);

    // --- Trade reports from the message center (620299).
    int DealF1_HB(IESBMessage* msg, CMessageServiceThread* thread);

    // --- Subscription answer (620001).
    int DealSubscibeAnswer(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread);

    // --- Fund notices 620301/620302/620303 republished as 33200/33201/33202.
    int DealCommIncomeFunc(IESBMessage* msg, CMessageServiceThread* thread, int issueType);

    // --- UDP records, called on the datagram consumer thread with the
    //     datagram (type char, five-digit length, text) and its length.
    int DoUDPHelper(void* data, int len);
    int CheckUDPData(void* data, int len);
    int DealUDP_hq(void* data, int len);          // '0' single-leg quote
    int DealUDP_argHq(void* data, int len);       // '9' arbitrage quote
    int DealUDP_exchStatus(void* data, int len);  // 'A' exchange status
    int DealUDP_xjHq(void* data, int len);        // 'B' inquiry quote
    int DealUDP_BJHB(void* data, int len);        // 'C' quote report
    int DealUDP_HB(void* data, int len);          // '3' trade report
    int DealUDP_OffsetSet(void* data, int len);   // 'F' offset setting
    int DealUDP_ZJZH_BZJHB(void* data, int len);  // 'E' margin account report
    int DealPUSH_STP(void* data, int len);             // 'S'
    int DealPUSH_EXERCISESTATUS(void* data, int len);  // 'D'
    int DealPUSH_OPT_ENTRUST(void* data, int len);     // 'X'
    int DealPUSH_OPT_CJHB(void* data, int len);        // 'Y'
    int DealPUSH_OPT_HQ(void* data, int len);          // 'Z'

    // Receiver callback: owner is the service; queues a copy of the datagram.
    static int OnUDPReceive(void* owner, void* data, int len);
    int mf_OnUDPReceive(void* data, int len);

    IF2Packer* m_pPacker;
    KAVLE2::CUDPBroadcast* m_pUDPRecv;
    CTIKRONInfo* m_pTIKRONInfo;
    CTIKRONARGInfo* m_pTIKRONARGInfo;
    CTIKRONInfo_EX* m_pTIKRONInfo_EX;
    CExchStatusInfo* m_pFUTUExchStatusInfo;
    int m_iSendToMC;
    STHB m_szHB;
    STCJ m_szCJ;
    STCJ_EX m_szCJ_EX;
    STWTQR m_szWTQR;
    STWTQR_EX m_szWTQR_EX;
    STBJHB m_szBJHB;
    CMessageQueue<char*> m_qUDPData;
    std::atomic<bool> m_bStop;
    std::atomic<unsigned int> m_uiRecvUDPHB;
    std::atomic<unsigned int> m_uiRecvCJNum;
    std::atomic<unsigned int> m_uiRecvWTQRNum;
    pthread_t m_hThread;
    CIngestStats m_szIngestStats;

    // The host's optional statistics facet (frame/stats_sink.h): asked for
    // at the end of OnStart, given up at the start of OnStop.
    void AttachStatsSink();
    void DetachStatsSink();
    static void FillStats(void* service, tagTikronStats* out);

private:
    void RefreshSubscribeTime();
    void DeleteTables();
    friend void* DoUDPData(void* service);
    bool m_bThreadStarted = false;
    ITikronStatsSink* m_lpStatsSink = nullptr;
    // Held by the datagram consumer while a handler runs and by OnStop while
    // it frees the tables and the packer those handlers use.
    std::mutex m_udpWork;
};

// Datagram consumer thread: takes queued datagrams and dispatches them.
void* DoUDPData(void* service);
