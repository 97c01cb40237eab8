// SPDX-License-Identifier: MIT
#include <Kv7/Kv7Shim.h>

using namespace Velmora::Kv7;

extern "C"
{

    TlmWaypoint* Kv7CreateWaypoint(const WideChar* name)
    {
        return TlmWaypoint::Create(name);
    }

    TlmState* Kv7CreateState(const WideChar* name)
    {
        return TlmState::Create(name);
    }

    TlmAttribute* Kv7CreateTextAttribute(const WideChar* name, const WideChar* value)
    {
        return TlmAttribute::Create(name, value);
    }

    TlmAttribute* Kv7CreateBoolAttribute(const WideChar* name, bool value)
    {
        return TlmAttribute::Create(name, value);
    }

    void Kv7WaypointReached(TlmWaypoint* waypoint)
    {
        TlmFacade::WaypointReached(waypoint);
    }
}
