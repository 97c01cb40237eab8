// SPDX-License-Identifier: MIT
#pragma once

// C entry points over the static factories of Tlm.h, for callers that bind the library at run
// time: a C++ static member function has a mangled name that differs between compilers, a C
// function's name does not. Each does exactly what the operation it names does.

#include <Kv7/Kv7Export.h>
#include <Kv7/Tlm.h>

extern "C"
{

    KV7_EXPORT Velmora::Kv7::TlmWaypoint* Kv7CreateWaypoint(const Velmora::Kv7::WideChar* name);
    KV7_EXPORT Velmora::Kv7::TlmState* Kv7CreateState(const Velmora::Kv7::WideChar* name);
    KV7_EXPORT Velmora::Kv7::TlmAttribute* Kv7CreateTextAttribute(const Velmora::Kv7::WideChar* name,
                                                                  const Velmora::Kv7::WideChar* value);
    KV7_EXPORT Velmora::Kv7::TlmAttribute* Kv7CreateBoolAttribute(const Velmora::Kv7::WideChar* name,
                                                                  bool value);
    KV7_EXPORT void Kv7WaypointReached(Velmora::Kv7::TlmWaypoint* waypoint);

    // The types of the entry points, for the caller's resolve.
    typedef Velmora::Kv7::TlmWaypoint* (*Kv7CreateWaypointFunction)(const Velmora::Kv7::WideChar*);
    typedef Velmora::Kv7::TlmState* (*Kv7CreateStateFunction)(const Velmora::Kv7::WideChar*);
    typedef Velmora::Kv7::TlmAttribute* (*Kv7CreateTextAttributeFunction)(const Velmora::Kv7::WideChar*,
                                                                          const Velmora::Kv7::WideChar*);
    typedef Velmora::Kv7::TlmAttribute* (*Kv7CreateBoolAttributeFunction)(const Velmora::Kv7::WideChar*,
                                                                          bool);
    typedef void (*Kv7WaypointReachedFunction)(Velmora::Kv7::TlmWaypoint*);
}
