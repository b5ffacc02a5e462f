// JSON views of host messages and packed bodies for the product programs
// (tikron-host's publication lines, the control protocol, tikron-ctl).
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/host_message.h"
#include "host/host_pack.h"
#include "host/host_queue.h"

namespace product {

// A packed body as {"columns":[{name,type,width,scale}...],"rows":[[...]]}.
// Strings are converted from GBK to UTF-8 (invalid bytes become '?'), raw
// cells become lowercase hex strings, ints and doubles stay numbers, chars
// become one-character strings, missing cells null.
nlohmann::ordered_json PackedToJson(const hostemu::PackedBody& body);

// One publication line: function, packet_type, issue_type, packet_id, key
// (item 54), body (item 8); error_no and error_info for error messages,
// route (item 9, four texts) when the message has one. Written directly,
// compact, no line feed: the same text as DumpLine(MessageToJson(msg)).
std::string MessageLine(const hostemu::MessageSnapshot& msg);
// The same line as a JSON object.
nlohmann::ordered_json MessageToJson(const hostemu::MessageSnapshot& msg);

// The line as written: compact, invalid UTF-8 replaced, no trailing newline.
std::string DumpLine(const nlohmann::ordered_json& j);

std::string ToHex(const void* data, size_t len);
// Lowercase or uppercase hex, even length; false on anything else.
bool FromHex(const std::string& hex, std::string* out);

// Builds a packed body from {"columns":[name or {name,type,width,scale}],
// "rows":[[...]]}. Integers are added as ints, other numbers as doubles,
// strings as strings (UTF-8 converted to GBK) except in an 'R' column, where
// they are hex like the raw cells of PackedToJson (so any body printed can
// be sent back as it is), {"hex":"..."} as raw bytes, null leaves the rest
// of the row empty. False with a reason on bad input.
bool JsonToPacked(const nlohmann::ordered_json& j, int version, hostemu::PackedBody* out, std::string* error);

// The message fields of a control request over what *out holds already:
// "function", "packet_type", "packet_id", "issue_type", "body" (item 8),
// "key" (item 54), "version" (1 or 33, of body and key; default 33),
// "error_flag" (item 7), "error_no" (19), "error_info" (20), "route" (item
// 9: up to four strings, OSPF name, neighbour, server, plug-in). False with
// a reason on bad input.
bool JsonToMessage(const nlohmann::ordered_json& req, hostemu::MessageSpec* out, std::string* error);

// UTF-8 to GBK for texts going into the plug-in; unconvertible characters
// become '?'.
std::string Utf8ToGbk(const std::string& text);

}  // namespace product
