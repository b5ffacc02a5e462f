// Configuration tree over pugixml.
#include "host/host_config.h"

#include <cstdlib>
#include <cstring>
#include <pugixml.hpp>

namespace hostemu {

namespace {
pugi::xml_node Node(pugi::xml_node_struct* n) { return pugi::xml_node(n); }

// Next element among the siblings starting at n (n included).
pugi::xml_node FirstElement(pugi::xml_node n) {
    while (n && n.type() != pugi::node_element) n = n.next_sibling();
    return n;
}
}  // namespace

int CHostCfgObj::QueryInterface(const char*, IKnown** out) {
    if (out != nullptr) *out = nullptr;
    return 0;
}

IRCfgObj* CHostCfgObj::GetChild(const char* name) {
    if (name == nullptr) return nullptr;
    return m_owner->Wrap(Node(m_node).child(name).internal_object());
}

const char* CHostCfgObj::GetAttrValue(const char* name) {
    if (name == nullptr) return nullptr;
    pugi::xml_attribute a = Node(m_node).attribute(name);
    return a ? a.value() : nullptr;
}

const char* CHostCfgObj::GetText() { return Node(m_node).child_value(); }

IRCfgObj* CHostCfgObj::GetFirstChild() {
    return m_owner->Wrap(FirstElement(Node(m_node).first_child()).internal_object());
}

IRCfgObj* CHostCfgObj::GetNextSibling() {
    return m_owner->Wrap(FirstElement(Node(m_node).next_sibling()).internal_object());
}

const char* CHostCfgObj::GetName() { return Node(m_node).name(); }

CHostConfig::CHostConfig() = default;
CHostConfig::~CHostConfig() = default;

int CHostConfig::LoadFile(const std::string& path) {
    auto doc = std::make_unique<pugi::xml_document>();
    pugi::xml_parse_result r = doc->load_file(path.c_str());
    if (!r) {
        m_error = path + ": " + r.description() + " at offset " + std::to_string(r.offset);
        return -1;
    }
    if (!doc->document_element()) {
        m_error = path + ": no root element";
        return -2;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_nodes.clear();
    m_doc = std::move(doc);
    m_error.clear();
    return 0;
}

int CHostConfig::LoadString(const std::string& xml) {
    auto doc = std::make_unique<pugi::xml_document>();
    pugi::xml_parse_result r = doc->load_buffer(xml.data(), xml.size());
    if (!r) {
        m_error = std::string("configuration text: ") + r.description() + " at offset " + std::to_string(r.offset);
        return -1;
    }
    if (!doc->document_element()) {
        m_error = "configuration text: no root element";
        return -2;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_nodes.clear();
    m_doc = std::move(doc);
    m_error.clear();
    return 0;
}

int CHostConfig::QueryInterface(const char* id, IKnown** out) {
    if (out == nullptr) return 0;
    if (id != nullptr && strcmp(id, SID_CFGSVR) == 0) {
        *out = this;
        return 1;
    }
    *out = nullptr;
    return 0;
}

IRCfgObj* CHostConfig::Wrap(pugi::xml_node_struct* node) {
    if (node == nullptr) return nullptr;
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_nodes.find(node);
    if (it != m_nodes.end()) return it->second.get();
    auto* obj = new CHostCfgObj(this, node);
    m_nodes.emplace(node, std::unique_ptr<CHostCfgObj>(obj));
    return obj;
}

IRCfgObj* CHostConfig::Root() {
    if (!m_doc) return nullptr;
    return Wrap(m_doc->document_element().internal_object());
}

IRCfgObj* CHostConfig::GetConfig(const char* name) {
    if (!m_doc || name == nullptr) return nullptr;
    return Wrap(m_doc->document_element().child(name).internal_object());
}

HostSettings CHostConfig::Settings() const {
    HostSettings s;
    if (!m_doc) return s;
    pugi::xml_node h = m_doc->document_element().child("host");
    if (!h) return s;
    s.heartbeatMs = h.attribute("heartbeat_ms").as_int(0);
    s.logFile = h.attribute("log_file").as_string("");
    s.logStderr = h.attribute("log_stderr").as_int(0) != 0;
    return s;
}

}  // namespace hostemu
