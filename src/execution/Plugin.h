// SPDX-License-Identifier: MIT
#pragma once

#include <VmWorkflowCore/WorkflowPlugin.h>

#include <QLibrary>
#include <QString>

#include <memory>

namespace Velmora::WorkflowCore {

// One plug-in library, shared by every workflow that names a file of the same name. Owned by the
// manager's plug-in cache; loaded lazily, on the first request for a handler, and never again
// after a failed attempt.
class Plugin
{
public:
    enum LoadState
    {
        NeverTried = 0,
        Loaded = 1,
        Failed = 2
    };

    explicit Plugin(const QString& path);
    ~Plugin();
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    const QString& Path() const { return m_path; }
    LoadState State() const { return m_state; }

    // The plug-in's handlers, asked once and cached; null when the library cannot be loaded or
    // has no such handler.
    WorkflowExecutor* ExecuteHandler();
    WorkflowEditorHandler* EditorHandler();
    WorkflowLaunchHandler* LaunchHandler();

    // Whether the library is mapped into the process right now.
    bool IsLibraryLoaded() const;

    // Unloads the library when the manager goes; the library object goes only when unloading
    // worked, so that nothing calls into code that is still mapped.
    void Unload();

private:
    bool Load();
    // Loads the library on the first request; true when there is a plug-in interface to ask.
    bool EnsurePlugin();

    QString m_path;
    LoadState m_state = NeverTried;
    std::unique_ptr<QLibrary> m_library;
    WorkflowPlugin* m_plugin = nullptr;
    WorkflowExecutor* m_executeHandler = nullptr;
    WorkflowEditorHandler* m_editorHandler = nullptr;
    WorkflowLaunchHandler* m_launchHandler = nullptr;
};

} // namespace Velmora::WorkflowCore
