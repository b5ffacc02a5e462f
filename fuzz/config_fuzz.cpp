// OnInit of the service over a configuration parsed from arbitrary XML.
// A configuration without the node identity (pub's first child with
// AppName, AppID, SvrName, SvrID) stops the process by design, so such
// inputs are skipped. Checked: OnInit returns 0 or a negative code, and the
// service is torn down without leaks (the leak checker runs at exit).
// A configuration that switches the trade-report log on writes its log
// files into the current directory (scripts/fuzz.sh runs in a work one).
#include <cstddef>
#include <cstdint>
#include <string>

#include "frame/tikron_service.h"
#include "fuzz/fuzz_support.h"
#include "host/host_config.h"
#include "host/host_pack.h"
#include "host/host_queue.h"

namespace {

bool HasIdentity(hostemu::CHostConfig& cfg) {
    IRCfgObj* pub = cfg.GetConfig("pub");
    if (pub == nullptr) return false;
    IRCfgObj* node = pub->GetFirstChild();
    if (node == nullptr) return false;
    for (const char* a : {"AppName", "AppID", "SvrName", "SvrID"})
        if (node->GetAttrValue(a) == nullptr) return false;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 16384) return 0;
    static hostemu::CHostMessageFactory* factory = [] {
        auto* f = new hostemu::CHostMessageFactory();
        f->SetReportLeaks(false);
        return f;
    }();
    static hostemu::CHostPackSvr* packSvr = new hostemu::CHostPackSvr();
    static fuzzsupport::CheckingLog* log = new fuzzsupport::CheckingLog();

    hostemu::CHostConfig cfg;
    if (cfg.LoadString(std::string(reinterpret_cast<const char*>(data), size)) != 0) return 0;
    if (!HasIdentity(cfg)) return 0;

    g_lpMsgFactory = factory;
    CTIKRONServiceImpl* svc = new CTIKRONServiceImpl();
    IKnown* ioc = nullptr;
    FUZZ_CHECK(svc->QueryInterface(SID_IOC, &ioc) == 1 && ioc != nullptr);
    IIoC* facet = static_cast<IIoC*>(ioc);
    facet->SetConfig("plugin", cfg.GetConfig("plugin"));
    facet->SetConfig("pub", cfg.GetConfig("pub"));
    facet->SetDependService(SID_ESBMESSAGEFACTORY, factory);
    facet->SetDependService(SID_F2PACKSVR, packSvr);
    facet->SetDependService(SID_CFGSVR, &cfg);
    facet->SetDependService(SID_LOG, log);
    const size_t packersBefore = packSvr->LivePackers();
    const size_t unpackersBefore = packSvr->LiveUnPackers();
    const int r = svc->OnInit();
    FUZZ_CHECK(r <= 0);
    // The host's stop and exit events, then its final Release.
    svc->OnStop();
    svc->OnExit();
    svc->Release();
    FUZZ_CHECK(factory->Stats().live == 0);
    // Everything the service took from the packer service went back.
    FUZZ_CHECK(packSvr->LivePackers() == packersBefore);
    FUZZ_CHECK(packSvr->LiveUnPackers() == unpackersBefore);
    return 0;
}
