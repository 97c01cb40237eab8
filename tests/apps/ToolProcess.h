// SPDX-License-Identifier: MIT
#pragma once

// vmworkflow as a real child process: its exit status and both output streams.

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace VmWorkflowTest {

struct ToolRun
{
    // -1: the tool crashed or did not end in time; -2: ended by the caller's bound (RunToolWithin).
    int status = -1;
    QByteArray out;
    QByteArray err;
};

inline ToolRun RunTool(const QString& program, const QStringList& arguments, int milliseconds = 60000)
{
    QProcess process;
    process.start(program, arguments);
    ToolRun run;
    if (!process.waitForFinished(milliseconds) || process.exitStatus() != QProcess::NormalExit)
    {
        process.kill();
        process.waitForFinished(10000);
        return run;
    }
    run.status = process.exitCode();
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}

// Like RunTool, but a run that does not end within the time is killed and reported as status -2.
inline ToolRun RunToolWithin(const QString& program, const QStringList& arguments, int milliseconds)
{
    QProcess process;
    process.start(program, arguments);
    ToolRun run;
    if (!process.waitForFinished(milliseconds))
    {
        process.kill();
        process.waitForFinished(10000);
        run.status = -2;
        return run;
    }
    if (process.exitStatus() != QProcess::NormalExit)
        return run;
    run.status = process.exitCode();
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}

} // namespace VmWorkflowTest
