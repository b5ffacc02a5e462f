// Configuration tree of the emulator, read from an XML file or string.
//
// Layout:
//   <tikron>                                   (root element, any name)
//     <pub><node AppName="A" AppID="1" SvrName="S" SvrID="2"/></pub>
//     <plugin>
//       <args enableudprecv="0" port="9090" .../>
//       <convert><convert22to16>1</convert22to16>...</convert>
//       <mc><request issuetype=".." functionno=".." note="..">
//             <param name=".." value=".."/></request></mc>
//     </plugin>
//     <host heartbeat_ms="0" log_file="..." log_stderr="0"/>   (optional)
//   </tikron>
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "frame/host_interfaces.h"

namespace pugi {
class xml_document;
struct xml_node_struct;
}

namespace hostemu {

class CHostConfig;

// One element. Objects are owned by their CHostConfig and live as long as it.
class CHostCfgObj final : public IRCfgObj {
public:
    CHostCfgObj(CHostConfig* owner, pugi::xml_node_struct* node) : m_owner(owner), m_node(node) {}
    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    IRCfgObj* GetChild(const char* name) override;        // first child element of that name, or null
    const char* GetAttrValue(const char* name) override;  // null when absent
    const char* GetText() override;                       // "" when the element has no text
    IRCfgObj* GetFirstChild() override;                   // first child element, or null
    IRCfgObj* GetNextSibling() override;                  // next sibling element, or null
    const char* GetName() override;

private:
    CHostConfig* m_owner;
    pugi::xml_node_struct* m_node;
};

// The emulator's own settings (element <host> under the root).
struct HostSettings {
    int heartbeatMs = 0;      // >0: the center neighbour sends 620000 requests this often
    std::string logFile;      // "" : no file
    bool logStderr = false;
};

class CHostConfig final : public ICfgSvr {
public:
    CHostConfig();
    ~CHostConfig();
    CHostConfig(const CHostConfig&) = delete;
    CHostConfig& operator=(const CHostConfig&) = delete;

    // 0 on success; negative with Error() set on a parse failure.
    int LoadFile(const std::string& path);
    int LoadString(const std::string& xml);
    const std::string& Error() const { return m_error; }

    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    // A child element of the root by name ("pub", "plugin", "host"), or null.
    IRCfgObj* GetConfig(const char* name) override;
    IRCfgObj* Root();  // null before a successful load

    HostSettings Settings() const;

    // Node wrapper for a pugixml node (null node -> null).
    IRCfgObj* Wrap(pugi::xml_node_struct* node);

private:
    std::unique_ptr<pugi::xml_document> m_doc;
    std::mutex m_mutex;
    std::map<pugi::xml_node_struct*, std::unique_ptr<CHostCfgObj>> m_nodes;
    std::string m_error;
};

}  // namespace hostemu
