// SPDX-License-Identifier: MIT
#pragma once

#include <Kv7/Kv7Export.h>

namespace Velmora::Kv7 {

// One UTF-16 code unit: wchar_t where it is 16 bits wide.
#if defined(_WIN32)
typedef wchar_t WideChar;
#else
typedef char16_t WideChar;
#endif

class TlmAttribute;
class TlmState;

// Ownership: every object comes from a Create function and is handed on: an attribute to the
// state it is attached to, a state to its waypoint, a waypoint to TlmFacade::WaypointReached,
// which frees the whole tree. A caller never deletes any of them. Names and values are copied;
// null texts count as empty.
//
// Callers bind this library at run time and reach the attach operations by their position in
// the virtual table, so the four operations declared before each attach operation hold their
// places for good, and the destructor comes last (it takes two slots on some compilers).

class KV7_EXPORT TlmAttribute
{
public:
    static TlmAttribute* Create(const WideChar* name, const WideChar* value);
    static TlmAttribute* Create(const WideChar* name, bool value);

    // The name as given, zero-terminated; valid while the attribute lives.
    virtual const WideChar* GetName() const;
    // Whether the value is a bool rather than a text.
    virtual bool IsBool() const;
    virtual bool GetBool() const;
    // The text value, zero-terminated; empty for a bool attribute.
    virtual const WideChar* GetText() const;
    virtual ~TlmAttribute();

private:
    TlmAttribute(const WideChar* name, const WideChar* text, bool isBool, bool value);
    TlmAttribute(const TlmAttribute&) = delete;
    TlmAttribute& operator=(const TlmAttribute&) = delete;
    friend class TlmState;
    struct Data;
    Data* d;
};

class KV7_EXPORT TlmState
{
public:
    static TlmState* Create(const WideChar* name);

    virtual const WideChar* GetName() const;
    virtual int GetAttributeCount() const;
    // The attribute at index in the order attached; null outside the range.
    virtual const TlmAttribute* GetAttribute(int index) const;
    // Frees every attribute attached so far.
    virtual void Clear();
    // Takes the attribute over and appends it; a null attribute is ignored.
    virtual void AddAttribute(TlmAttribute* attribute);
    virtual ~TlmState();

private:
    explicit TlmState(const WideChar* name);
    TlmState(const TlmState&) = delete;
    TlmState& operator=(const TlmState&) = delete;
    struct Data;
    Data* d;
};

class KV7_EXPORT TlmWaypoint
{
public:
    static TlmWaypoint* Create(const WideChar* name);

    virtual const WideChar* GetName() const;
    virtual int GetStateCount() const;
    // The state at index in the order attached; null outside the range.
    virtual const TlmState* GetState(int index) const;
    // Frees every state attached so far.
    virtual void Clear();
    // Takes the state over and appends it; a null state is ignored.
    virtual void AddState(TlmState* state);
    virtual ~TlmWaypoint();

private:
    explicit TlmWaypoint(const WideChar* name);
    TlmWaypoint(const TlmWaypoint&) = delete;
    TlmWaypoint& operator=(const TlmWaypoint&) = delete;
    struct Data;
    Data* d;
};

class KV7_EXPORT TlmFacade
{
public:
    // Records the waypoint (one JSON line appended to the file named by KV7_LOG_FILE, nothing
    // when that is unset or cannot be written) and frees it with everything attached. Null is
    // ignored.
    static void WaypointReached(TlmWaypoint* waypoint);
};

} // namespace Velmora::Kv7
