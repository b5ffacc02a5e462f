// Message worker thread: runs the service's worker loop with its own
// packers and unpackers.
#include "frame/service_threads.h"

#include <cstring>

#include "frame/message_service.h"

CMessageServiceThread::CMessageServiceThread()
    : m_lpOwnerService(nullptr),
      m_pV1UnPacker(nullptr),
      m_pV2UnPacker(nullptr),
      m_pV1Packer(nullptr),
      m_pV2Packer(nullptr),
      m_pUnPacker(nullptr),
      m_pPacker(nullptr) {
    memset(&m_szLocalHB, 0, sizeof(m_szLocalHB));
    memset(&m_szLocalCJ, 0, sizeof(m_szLocalCJ));
    memset(&m_szLocalCJ_EX, 0, sizeof(m_szLocalCJ_EX));
    memset(&m_szLocalWTQR, 0, sizeof(m_szLocalWTQR));
    memset(&m_szLocalWTQR_EX, 0, sizeof(m_szLocalWTQR_EX));
    memset(&m_szLocalBJ, 0, sizeof(m_szLocalBJ));
}

CMessageServiceThread::~CMessageServiceThread() {
    Stop(-1);
    if (m_pV1Packer != nullptr) m_pV1Packer->Release();
    m_pV1Packer = nullptr;
    if (m_pV2Packer != nullptr) m_pV2Packer->Release();
    m_pV2Packer = nullptr;
    if (m_pV1UnPacker != nullptr) m_pV1UnPacker->Release();
    m_pV1UnPacker = nullptr;
    if (m_pV2UnPacker != nullptr) m_pV2UnPacker->Release();
    m_pV2UnPacker = nullptr;
}

long CMessageServiceThread::Run() {
    return m_lpOwnerService != nullptr ? m_lpOwnerService->ThreadFunc(this) : 0;
}

void CMessageServiceThread::SetOwnerService(CMessageServiceImpl* owner) {
    m_lpOwnerService = owner;
    IF2PackSvr* packSvr = owner != nullptr ? owner->m_lpF2PackSvr : nullptr;
    if (packSvr == nullptr) return;
    m_pV1UnPacker = packSvr->GetUnPacker(1);
    m_pV1Packer = packSvr->GetPacker(1);
    m_pV2UnPacker = packSvr->GetUnPacker(33);
    m_pV2Packer = packSvr->GetPacker(33);
}

int CMessageServiceThread::GetUnPacker(const void* buf, int /*len*/) {
    IF2PackSvr* packSvr = m_lpOwnerService != nullptr ? m_lpOwnerService->m_lpF2PackSvr : nullptr;
    if (packSvr != nullptr && packSvr->GetPackVersion(buf) == 1) {
        m_pUnPacker = m_pV1UnPacker;
        m_pPacker = m_pV1Packer;
    } else {
        m_pUnPacker = m_pV2UnPacker;
        m_pPacker = m_pV2Packer;
    }
    return 0;
}
