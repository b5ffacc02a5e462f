// Host framework interfaces: the binary contract between the message-service
// host and its plug-ins. Every interface is an abstract class whose virtual
// table slot order is fixed; never reorder, insert or remove a slot. New slots
// may only ever be appended at the end of an interface that nothing derives
// from. Slot numbers are given in the comments (IKnown's three come first).
//
// Slots beyond those the plug-in calls (the emulator's introspection slots on
// IF2UnPacker, IESBMessage::SetBuffer, IRCfgObj::GetName, ...) were chosen
// once for this host and are part of the same contract.
#pragma once

#include <cstddef>

class IKnown;
class IMessageService;
class IESBMessage;
class IESBMessageItem;
class IESBQ;
class IF2Packer;
class IF2UnPacker;
class IRCfgObj;

// Interface identifiers.
#define SID_MESSAGESERVICE "com.velmora.kavle.messageservice"
#define SID_IOC "com.velmora.kavle.IoC"
#define SID_MANAGER "com.velmora.kavle.Manager"
#define SID_ESBMESSAGEFACTORY "com.velmora.kavle.esbmessagefactory"
#define SID_F2PACKSVR "com.velmora.kavle.f2packsvr"
#define SID_CFGSVR "com.velmora.kavle.config"
#define SID_LOG "com.velmora.kavle.log"
#define SID_SECURITY "com.velmora.kavle.security"

class IKnown {
public:
    virtual int QueryInterface(const char* id, IKnown** out) = 0;  // 0
    virtual int AddRef() = 0;                                     // 1
    virtual int Release() = 0;                                    // 2
};

class IMessageService : public IKnown {
public:
    virtual int PostMsg(IESBMessage* msg, IMessageService* from) = 0;  // 3
    virtual int RegisterNextService(IMessageService* svc) = 0;        // 4
    virtual int RegisterPrevService(IMessageService* svc) = 0;        // 5
    virtual int RemoveService() = 0;                                  // 6
    virtual const char* GetServiceID() = 0;                           // 7
    virtual int SetServiceID(const char* id) = 0;                     // 8
    virtual int GetServiceStatus() = 0;                               // 9
    virtual int RegisterService() = 0;                                // 10
    virtual int SendSvrHeartBeat() = 0;                               // 11
};

class IIoC : public IKnown {
public:
    virtual int SetConfig(const char* name, IRCfgObj* cfg) = 0;     // 3
    virtual int SetDependService(const char* id, IKnown* obj) = 0;  // 4
};

class IManager : public IKnown {
public:
    virtual int ProcMngRequest(IF2UnPacker* req, IF2Packer* answer) = 0;  // 3
    virtual int ProcMngAnswer(IF2UnPacker* answer) = 0;                  // 4
    virtual int ProcSysEvent(unsigned long event, unsigned long a, unsigned long b,
                             void (*callback)(int)) = 0;                  // 5
};

// One item (tag) of a host message: a small array of values by index.
class IESBMessageItem : public IKnown {
public:
    virtual const char* GetString(int index) = 0;                   // 3
    virtual int GetInt(int index) = 0;                              // 4
    virtual const void* GetRawData(int* len, int index) = 0;        // 5: null or len < 1: absent
    virtual int SetString(const char* value, int index) = 0;        // 6
    virtual int SetInt(int value, int index) = 0;                   // 7
    virtual int SetRawData(const void* data, int len) = 0;          // 8: copies the bytes
    virtual int GetCount() = 0;                                     // 9: values held
};

class IESBMessage : public IKnown {
public:
    // Release (slot 2) gives the message back to the host.
    virtual IESBMessageItem* GetItem(int tag) = 0;                  // 3: never null for a valid tag
    virtual const void* GetBuffer(int* len) = 0;                    // 4: whole message, encoded
    virtual int Prepare(int packetType, int functionNo) = 0;        // 5
    virtual int ChangeToAnswer() = 0;                               // 6
    virtual int SetBuffer(const void* buf, int len) = 0;            // 7: decode a GetBuffer encoding
};

class IESBQ : public IKnown {
public:
    // wait: milliseconds; 0 does not block.
    virtual IESBMessage* PopMsg(int wait, IMessageService** from, int reserved) = 0;  // 3
    virtual int PushMsg(IESBMessage* msg, IMessageService* from, int reserved) = 0;    // 4
    virtual int GetMsgCount() = 0;                                  // 5
    virtual int GetMaxMsgCount() = 0;                               // 6
    virtual int GetDealedCount() = 0;                               // 7
};

class IESBMessageFactory : public IKnown {
public:
    virtual IESBQ* GetESBQ() = 0;                                   // 3
    virtual IESBMessage* GetESBMsg() = 0;                           // 4
};

class IF2Packer : public IKnown {
public:
    virtual int BeginPack() = 0;                                                // 3
    virtual int AddField(const char* name, char type, int width, int scale) = 0; // 4
    virtual int AddStr(const char* value) = 0;                                  // 5
    virtual int AddInt(int value) = 0;                                          // 6
    virtual int AddDouble(double value) = 0;                                    // 7
    virtual int AddChar(char value) = 0;                                        // 8
    virtual int PackRaw(const void* data, int len) = 0;                         // 9: < 0 on failure
    virtual int EndPack() = 0;                                                  // 10
    virtual void* GetPackBuf() = 0;                                             // 11
    virtual int GetPackLen() = 0;                                               // 12
    virtual void FreeMem(void* buf) = 0;                                        // 13
};

class IF2UnPacker : public IKnown {
public:
    virtual int FindColumn(const char* name) = 0;                   // 3: < 0 when absent
    virtual const char* GetStr(const char* name) = 0;               // 4: null when absent
    virtual char GetChar(const char* name) = 0;                     // 5
    virtual double GetDouble(const char* name) = 0;                 // 6
    virtual int GetInt(const char* name) = 0;                       // 7
    virtual const void* GetRaw(const char* name, int* len) = 0;     // 8
    virtual int Next() = 0;                                         // 9
    virtual int IsEOF() = 0;                                        // 10
    virtual int Open(const void* buf, int len) = 0;                 // 11: 0 on success
    virtual const void* GetPackBuf() = 0;                           // 12
    virtual int GetPackLen() = 0;                                   // 13
    virtual int GetRowCount() = 0;                                  // 14
    // Introspection, used by the host's tools.
    virtual int GetColCount() = 0;                                  // 15
    virtual const char* GetColName(int col) = 0;                    // 16
    virtual char GetColType(int col) = 0;                           // 17: 'S', 'R', ...
    virtual int GetColWidth(int col) = 0;                           // 18
    virtual int GetColScale(int col) = 0;                           // 19
    // How the current row's value was added: 'I', 'D', 'C', 'S' or 'R'; 0 for none.
    virtual char GetValueKind(int col) = 0;                         // 20
    virtual const char* GetStrByIndex(int col) = 0;                 // 21
    virtual const void* GetRawByIndex(int col, int* len) = 0;       // 22
    virtual int First() = 0;                                        // 23: back to the first row
};

class IF2PackSvr : public IKnown {
public:
    virtual int GetPackVersion(const void* buf) = 0;                // 3: 1 = version 1, else 33
    virtual IF2Packer* GetPacker(int version) = 0;                  // 4
    virtual IF2UnPacker* GetUnPacker(int version) = 0;              // 5
};

class IRCfgObj : public IKnown {
public:
    virtual IRCfgObj* GetChild(const char* name) = 0;               // 3
    virtual const char* GetAttrValue(const char* name) = 0;         // 4
    virtual const char* GetText() = 0;                              // 5
    virtual IRCfgObj* GetFirstChild() = 0;                          // 6
    virtual IRCfgObj* GetNextSibling() = 0;                         // 7
    virtual const char* GetName() = 0;                              // 8
};

class ILogService : public IKnown {
public:
    virtual int AddLog(const char* function, int code, const char* text) = 0;  // 3
};

class ICfgSvr : public IKnown {
public:
    virtual IRCfgObj* GetConfig(const char* name) = 0;              // 3
};

class ISecurity : public IKnown {
public:
    virtual int Check(const char* subject) = 0;                     // 3
};

class ICert : public IKnown {
public:
    virtual const char* GetSubject() = 0;                           // 3
};
