// Management console of the emulator: sends one management action to a
// plug-in's manager facet (request field "function_id") and shows the
// answer table as aligned UTF-8 text.
//
//   hostemu::ConsoleTable t;
//   int rc = hostemu::RunManagementAction(hostemu::ManagerOf(host.Service()),
//                                         host.PackSvr(), 0, &t);
//   std::cout << hostemu::RenderTable(t);
#pragma once

#include <string>
#include <vector>

#include "frame/host_interfaces.h"
#include "host/host_pack.h"

namespace hostemu {

// Failures of the console itself (action results are passed on unchanged).
enum {
    CONSOLE_NO_MANAGER = -10,   // no manager facet or no packer service
    CONSOLE_BAD_ANSWER = -11,   // the answer buffer does not decode
    CONSOLE_BAD_REQUEST = -12,  // the request could not be packed or opened
};

struct ConsoleTable {
    int result = 0;                              // the action's result
    std::vector<std::string> columns;            // captions, UTF-8
    std::vector<std::vector<std::string>> rows;  // values as text, UTF-8
    PackedBody body;                             // the answer as packed (GBK texts)
};

// Request body of one action: one S column "function_id", one row.
std::vector<char> BuildManagementRequest(int functionId, int version = 33);

// The manager facet of a service; null when it has none.
IManager* ManagerOf(IMessageService* service);

// Calls ProcMngRequest with the request for functionId and a fresh packer.
// On a zero result the answer is decoded into *out (texts converted from GBK
// to UTF-8; doubles with their column's scale). Returns the action's result,
// or one of the CONSOLE_ codes.
int RunManagementAction(IManager* manager, CHostPackSvr& packSvr, int functionId, ConsoleTable* out,
                        int version = 33);

// Terminal columns taken by UTF-8 text: East Asian wide and full-width
// characters count 2, combining marks and control characters 0, anything
// else (also each byte of a broken sequence) 1.
size_t DisplayWidth(const std::string& utf8);

// A value made printable on one line, the cell itself unchanged: control
// characters shown escaped, \n \r \t \0 and \xHH for the others (a ctime
// text's line feed too), so every row stays one line.
std::string ConsoleCell(const std::string& utf8);

// Header, a separator line and one line per row; columns are separated by
// " | " and padded to the widest display width of their caption and values.
// Rows shorter than the header get empty cells.
std::string RenderTable(const ConsoleTable& table);

}  // namespace hostemu
