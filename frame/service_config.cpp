// CMessageServiceImpl::OnInit: reads the "pub" identity and the "plugin"
// settings, builds the subscription list and creates the thread objects.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "frame/fatal_check.h"
#include "frame/message_service.h"
#include "frame/service_threads.h"
#include "frame/text_copy.h"
#include "runtime/futu_log.h"

namespace {

// atoi of an attribute into target; an absent attribute keeps the default.
void ReadIntAttr(IRCfgObj* node, const char* name, int& target) {
    const char* value = node->GetAttrValue(name);
    if (value != nullptr) target = atoi(value);
}

// atoi of a child element's text; absent element or empty text keeps 0.
void ReadSwitch(IRCfgObj* node, const char* name, int& target) {
    IRCfgObj* child = node->GetChild(name);
    if (child == nullptr) return;
    const char* text = child->GetText();
    if (text != nullptr && text[0] != '\0') target = atoi(text);
}

}  // namespace

int CMessageServiceImpl::OnInit() {
    m_lpMessageQueue = m_lpMsgFactory != nullptr ? m_lpMsgFactory->GetESBQ() : nullptr;

    memset(m_szNodeName, 0, sizeof(m_szNodeName));
    memset(m_szServerName, 0, sizeof(m_szServerName));

    // Identity: first child element of the "pub" node.
    TIKRON_FATAL_CHECK(m_lpCoPub != nullptr);
    IRCfgObj* pub = m_lpCoPub->GetFirstChild();
    TIKRON_FATAL_CHECK(pub != nullptr);
    const char* lpValue = pub->GetAttrValue("AppName");
    TIKRON_FATAL_CHECK(lpValue);
    const char* lpID = pub->GetAttrValue("AppID");
    TIKRON_FATAL_CHECK(lpID);
    snprintf(m_szNodeName, sizeof(m_szNodeName), "%s%c%s", lpValue, '#', lpID);
    char logName[600];
    snprintf(logName, sizeof(logName), "%s_%s%c-%s", "tikrno", lpValue, '#', lpID);
    CopyField(m_szGroupName, lpValue);
    snprintf(g_cAppName, sizeof(g_cAppName), "%s%c%s", lpValue, '#', lpID);

    lpValue = pub->GetAttrValue("SvrName");
    TIKRON_FATAL_CHECK(lpValue);
    lpID = pub->GetAttrValue("SvrID");
    TIKRON_FATAL_CHECK(lpID);
    snprintf(m_szServerName, sizeof(m_szServerName), "%s%c%s", lpValue, '#', lpID);

    m_iThreads = 4;

    IRCfgObj* args = m_lpConfig != nullptr ? m_lpConfig->GetChild("args") : nullptr;
    if (args != nullptr) {
        ReadIntAttr(args, "enableudprecv", m_iEnableRecvUDP);
        ReadIntAttr(args, "enableudphq", m_iDealUdpHq);
        ReadIntAttr(args, "enableudphb", m_iDealUdpHb);
        ReadIntAttr(args, "port", m_iUDPPort);
        ReadIntAttr(args, "heartbeattimeout", m_iHeartBeatTimeout);
        ReadIntAttr(args, "subscibetomc", m_iEnableSubscibeToMC);
        ReadIntAttr(args, "inittime", m_iInitTime);
        ReadIntAttr(args, "sysversion", m_iSysVersion);
        ReadIntAttr(args, "udphqversion", m_iUdpHqVersion);
        ReadIntAttr(args, "savehblog", m_iSaveHBLog);
        if (m_iSaveHBLog != 0) {
            FutuLog::Create(logName, 30);
            if (FutuLog::GetInstancePtr() != nullptr) FutuLog::GetInstancePtr()->StartLogger();
        }
        int bufLen = 0;
        ReadIntAttr(args, "udprecvbuflen", bufLen);
        if (bufLen > 0) m_iUDPRecvBufLen = bufLen;
        int pollUs = 0;
        ReadIntAttr(args, "udppollus", pollUs);
        m_iUDPPollUs = pollUs < 0 ? 0 : (pollUs > kMaxUDPPollUs ? kMaxUDPPollUs : pollUs);
    }

    IRCfgObj* convert = m_lpConfig != nullptr ? m_lpConfig->GetChild("convert") : nullptr;
    if (convert != nullptr) {
        ReadSwitch(convert, "convert22to16", m_convert22to16);
        ReadSwitch(convert, "convert22to33100", m_convert22to33100);
        ReadSwitch(convert, "convert18to33102", m_convert18to33102);
        ReadSwitch(convert, "convert23to17", m_convert23to17);
        ReadSwitch(convert, "convert23to33101", m_convert23to33101);
        ReadSwitch(convert, "convert24to33105", m_convert24to33105);
        ReadSwitch(convert, "convert33101to23", m_convert33101to23);
        ReadSwitch(convert, "convert33101to17", m_convert33101to17);
        ReadSwitch(convert, "convert33100to22", m_convert33100to22);
        ReadSwitch(convert, "convert33100to16", m_convert33100to16);
        ReadSwitch(convert, "convert33102to18", m_convert33102to18);
        ReadSwitch(convert, "convert33105to24", m_convert33105to24);
    }

    IRCfgObj* mc = m_lpConfig != nullptr ? m_lpConfig->GetChild("mc") : nullptr;
    if (mc != nullptr) {
        int r = ReadSubscribeList(mc);
        if (r != 0) return r;
    }

    printf("enableudprecv = %d!\n", m_iEnableRecvUDP);
    printf("enableudphq = %d!\n", m_iDealUdpHq);
    printf("enableudphb = %d!\n", m_iDealUdpHb);
    fflush(stdout);

    m_lpThread = new CMessageServiceThread[m_iThreads];
    m_lpThreadID = new pthread_t[m_iThreads]();
    for (int i = 0; i < m_iThreads; ++i) m_lpThread[i].SetOwnerService(this);
    m_lpRegeditThread = new CRegeditServiceThread();
    m_lpRegeditThread->SetOwnerService(this);
    m_pHeartBeatThread = new CHeartBeatThread();
    m_pHeartBeatThread->SetOwnerService(this);

    if (m_lpF2PackSvr != nullptr) {
        m_pIF2UnPacker = m_lpF2PackSvr->GetUnPacker(1);
        m_pIF2Packer = m_lpF2PackSvr->GetPacker(1);
    }
    return 0;
}

// One tagRequestNode per child of "mc", entered in the pending map under
// packet ids 1, 2, ... in document order. Returns 0, -5 or -6.
int CMessageServiceImpl::ReadSubscribeList(IRCfgObj* mc) {
    unsigned long packetCounter = 0;
    for (IRCfgObj* req = mc->GetFirstChild(); req != nullptr; req = req->GetNextSibling()) {
        tagRequestNode* node = new (std::nothrow) tagRequestNode();
        if (node == nullptr) {
            fprintf(stderr, "new STRequestNode fail!\n");
            break;
        }
        memset(node, 0, sizeof(*node));
        const char* value = req->GetAttrValue("issuetype");
        if (value != nullptr) node->iIssueType = atoi(value);
        value = req->GetAttrValue("branchno");
        if (value != nullptr) node->iBranchNo = atoi(value);
        value = req->GetAttrValue("functionno");
        if (value != nullptr) node->ulFunctionNo = static_cast<unsigned long>(atol(value));
        // Texts are bounded to their fields; shorter texts copy as they are.
        CopyField(node->szRouteInfo.m_cOSPFName, req->GetAttrValue("ospfname"));
        CopyField(node->szRouteInfo.m_cSVRName, req->GetAttrValue("svrname"));
        CopyField(node->szRouteInfo.m_cPluginID, req->GetAttrValue("pluginid"));
        CopyField(node->cName, req->GetAttrValue("note"));

        IRCfgObj* param = req->GetFirstChild();
        if (param == nullptr) {
            fprintf(stderr, "[CMCServiceInterface::ReadSubscibeRequest]GetFirstChild NULL, return -5!");
            fflush(stderr);
            FreeRequestNode(node);
            return -5;
        }
        tagKeyInfo** tail = &node->pParamList;
        for (; param != nullptr; param = param->GetNextSibling()) {
            const char* name = param->GetAttrValue("name");
            const char* val = param->GetAttrValue("value");
            tagKeyInfo* key = new (std::nothrow) tagKeyInfo();
            if (key == nullptr) {
                fprintf(stderr, "[CMCServiceInterface::ReadSubscibeRequest]new KeyInfo fail,return -6\n");
                FreeRequestNode(node);
                return -6;
            }
            if (name == nullptr || val == nullptr) {
                fprintf(stderr,
                        "[CMCServiceInterface::ReadSubscibeRequest]KeyInfo without name or value,return -6\n");
                delete key;
                FreeRequestNode(node);
                return -6;
            }
            memset(key, 0, sizeof(*key));
            CopyField(key->cKeyName, name);
            CopyField(key->cKeyValue, val);
            *tail = key;
            tail = &key->m_pNext;
        }
        ++packetCounter;
        node->ulPacketID = packetCounter;
        m_szSendRequestLock.Acquire();
        m_szSendRequestMap[packetCounter] = node;
        m_szSendRequestLock.Release();
    }
    return 0;
}
