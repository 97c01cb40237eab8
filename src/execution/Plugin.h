#pragma once

#include <QLibrary>
#include <QString>

#include <memory>

namespace Velmora::WorkflowCore {

// One plug-in library the manager loaded for a workflow's "Plugin" name.
class Plugin
{
public:
    explicit Plugin(const QString& name) : m_name(name) {}
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    const QString& Name() const { return m_name; }

    // Unloads the library; the library object and its handler go only when unloading worked,
    // so that nothing calls into code that is still mapped.
    void Unload()
    {
        if (m_library && m_library->isLoaded() && m_library->unload())
        {
            m_library.reset();
            m_handler = nullptr;
        }
    }

private:
    QString m_name;
    std::unique_ptr<QLibrary> m_library;
    void* m_handler = nullptr;
};

} // namespace Velmora::WorkflowCore
