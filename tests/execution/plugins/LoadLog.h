// SPDX-License-Identifier: MIT
#pragma once

// Lets a test see what happens inside a plug-in library without holding a handle on it (a handle
// would keep the library mapped): each event becomes one line "<event> <library path>" of the file
// named by VMWF_TEST_PLUGIN_LOG. The library's static constructor logs "load", its static
// destructor "unload", so the lines also prove when the library really came and went.

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace VmWorkflowTestPlugin {

inline void LogEvent(const char* event)
{
    const char* logFile = std::getenv("VMWF_TEST_PLUGIN_LOG");
    if (!logFile || !*logFile)
        return;
    Dl_info info{};
    const char* path =
        dladdr(reinterpret_cast<void*>(&LogEvent), &info) && info.dli_fname ? info.dli_fname : "?";
    if (std::FILE* file = std::fopen(logFile, "a"))
    {
        std::fprintf(file, "%s %s\n", event, path);
        std::fclose(file);
    }
}

struct LoadLog
{
    LoadLog() { LogEvent("load"); }
    ~LoadLog() { LogEvent("unload"); }
    LoadLog(const LoadLog&) = delete;
    LoadLog& operator=(const LoadLog&) = delete;
};

} // namespace VmWorkflowTestPlugin
