// SPDX-License-Identifier: MIT
// A library that is no workflow plug-in: it exports something, but not the entry point.

#include <QtGlobal>

#include "LoadLog.h"

namespace {
VmWorkflowTestPlugin::LoadLog g_loadLog;
} // namespace

extern "C" Q_DECL_EXPORT int GetSomethingElse()
{
    return 7;
}
