// Subjects and headers of tikron on a NATS bus.
//
//   tikron.pub.<node>.<function>.<issue_type>.<key>   exact message (ESBM)
//   tikron.json.<node>.<function>.<issue_type>.<key>  the same as a JSON line
//   tikron.req.<node> / tikron.req.group.<group>      exact-message requests
//   tikron.ctl.<node> / tikron.ctl.group.<group>      control requests (JSON)
//   tikron.id.<node>                                  identity probe
//
// Every variable token is made subject-safe by Token(): bytes outside
// [A-Za-z0-9_-] become %XX (upper-case hex), an empty text becomes "%".
// A node identity AppName#AppID therefore always holds "%23", so it never
// equals the literal token "group".
#pragma once

#include <string>
#include <vector>

namespace natsbus {

// Header names: the sender (on every message but a publication that fits one
// message, whose subject names it) and the chunk tag.
constexpr const char* kNodeHeader = "Tikron-Node";    // AppName#AppID of the sender
constexpr const char* kChunkHeader = "Tikron-Chunk";  // "<index>/<count>/<id>" of a chunk

std::string Token(const std::string& raw);
// The inverse of Token; false for a token Token() cannot produce.
bool UnToken(const std::string& token, std::string* raw);

std::string PublicationSubject(const std::string& node, int function, int issueType, const std::string& key);
std::string JsonSubject(const std::string& node, int function, int issueType, const std::string& key);
// Every node's publications of one issue type (0: of every issue type).
std::string SubscriptionSubject(int issueType);
std::string RequestSubject(const std::string& node);
std::string GroupRequestSubject(const std::string& group);
std::string ControlSubject(const std::string& node);
std::string GroupControlSubject(const std::string& group);
std::string IdentitySubject(const std::string& node);
// The node a publication subject (tikron.pub. or tikron.json.) names; ""
// for other subjects and for a node token Token() cannot produce.
std::string SubjectNode(const std::string& subject);

// The key token's text from a packed key (item 54): the first row's cells
// as text joined by ','; "" when there is no key or it does not unpack.
std::string KeyText(const void* packed, int len);

}  // namespace natsbus
