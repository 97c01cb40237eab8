// SPDX-License-Identifier: MIT
#pragma once

// Writes the small files the tests read: workflow files, settings files, anything textual.

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

namespace VmWorkflowTest {

inline bool WriteFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    return file.write(content) == content.size();
}

inline QByteArray ReadFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

// One workflow element with the given attributes text, e.g. R"(Id="a" Name="A")".
inline QByteArray WorkflowElement(const QByteArray& attributes, const QByteArray& children = QByteArray())
{
    return "<Workflow " + attributes + ">" + children + "</Workflow>";
}

inline QByteArray WorkflowDocument(const QByteArray& elements, const QByteArray& xlfFile = QByteArray())
{
    QByteArray root = "<Workflows";
    if (!xlfFile.isEmpty())
        root += " XlfFile=\"" + xlfFile + "\"";
    return "<?xml version=\"1.0\"?>\n" + root + ">" + elements + "</Workflows>\n";
}

} // namespace VmWorkflowTest
