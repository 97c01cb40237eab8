// SPDX-License-Identifier: MIT
// vmworkflow: lists, shows and manages the workflows the library finds.
//
// Exit status: 0 when the action succeeded, 1 when it failed, 2 for a bad command line.

#include "RunCommands.h"
#include "SampleData.h"
#include "WorkflowText.h"

#include <VmWorkflowCore/VmWorkflowCoreVersion.h>
#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>
#include <VmWorkflowCore/WorkflowQueryKeys.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QTextStream>

#include <cstdio>
#include <memory>
#include <vector>

using namespace Velmora::WorkflowCore;
using VmWorkflowTool::DefaultSearchPaths;
using VmWorkflowTool::ReadText;
using VmWorkflowTool::RunsHere;
using VmWorkflowTool::Wide;

namespace {

enum ExitStatus
{
    Success = 0,
    ActionFailed = 1,
    BadCommandLine = 2
};

// The keys the library's query understands, as it names them.
template <size_t Count> QStringList KeyList(const char* const (&keys)[Count])
{
    QStringList list;
    for (const char* key : keys)
        list << QString::fromLatin1(key);
    return list;
}

const QStringList kFilterKeys = KeyList(Velmora::WorkflowCore::QueryKeys::FilterKeys);
const QStringList kSortKeys = KeyList(Velmora::WorkflowCore::QueryKeys::SortKeys);

QTextStream& Out()
{
    static QTextStream stream(stdout);
    return stream;
}

int Fail(ExitStatus status, const QString& sentence)
{
    Out().flush();
    QTextStream err(stderr);
    err << QCoreApplication::applicationName() << ": " << sentence << '\n';
    return status;
}

bool KnownKey(const QStringList& keys, const QString& key)
{
    for (const QString& known : keys)
    {
        if (known.compare(key, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

// The library reads what it understands of a filter text and drops the rest; the tool is stricter
// and says what it cannot use.
QString CheckFilterText(const QString& filter)
{
    for (const QString& item : filter.split(QLatin1Char(','), Qt::SkipEmptyParts))
    {
        const QStringList pieces = item.split(QLatin1Char('='), Qt::SkipEmptyParts);
        if (pieces.size() != 2)
            return QStringLiteral("the filter item \"%1\" is not of the form key=value.").arg(item);
        if (!KnownKey(kFilterKeys, pieces.first().trimmed()))
            return QStringLiteral("the filter key \"%1\" is unknown; use one of %2.")
                .arg(pieces.first().trimmed(), kFilterKeys.join(QStringLiteral(", ")));
    }
    return QString();
}

QString CheckSortText(const QString& sort)
{
    for (const QString& item : sort.split(QLatin1Char(','), Qt::SkipEmptyParts))
    {
        const QStringList pieces = item.split(QLatin1Char(':'), Qt::SkipEmptyParts);
        if (pieces.isEmpty() || pieces.size() > 2 || !KnownKey(kSortKeys, pieces.first().trimmed()))
            return QStringLiteral("the sort item \"%1\" is not of the form key[:0|1] with a key among %2.")
                .arg(item, kSortKeys.join(QStringLiteral(", ")));
        bool number = true;
        if (pieces.size() == 2)
            pieces.at(1).trimmed().toInt(&number);
        if (!number)
            return QStringLiteral("the sort direction in \"%1\" is not a number.").arg(item);
    }
    return QString();
}

QString IsoDate(unsigned int seconds)
{
    return QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC).toString(Qt::ISODate);
}

QJsonObject Summary(Workflow* workflow)
{
    QJsonObject object;
    object.insert(QStringLiteral("id"), ReadText([&](WideChar* b, int s) { return workflow->GetId(b, s); }));
    object.insert(QStringLiteral("name"),
                  ReadText([&](WideChar* b, int s) { return workflow->GetName(b, s); }));
    object.insert(QStringLiteral("isTemplate"), workflow->IsTemplate());
    object.insert(QStringLiteral("isReadOnly"), workflow->IsReadOnly());
    object.insert(QStringLiteral("templateId"),
                  ReadText([&](WideChar* b, int s) { return workflow->GetTemplateId(b, s); }));
    object.insert(QStringLiteral("primaryProduct"),
                  ReadText([&](WideChar* b, int s) { return workflow->GetPrimaryProduct(b, s); }));
    object.insert(QStringLiteral("targetProduct"),
                  ReadText([&](WideChar* b, int s) { return workflow->GetTargetProduct(b, s); }));
    object.insert(QStringLiteral("requiredProducts"),
                  ReadText([&](WideChar* b, int s) { return workflow->GetRequiredProducts(b, s); }));
    object.insert(QStringLiteral("sourceFile"),
                  ReadText([&](WideChar* b, int s) { return workflow->GetSourceFile(b, s); }));
    return object;
}

QJsonObject Details(Workflow* workflow)
{
    QJsonObject object = Summary(workflow);
    object.insert(QStringLiteral("helpId"),
                  ReadText([&](WideChar* b, int s) { return workflow->GetHelpId(b, s); }));
    object.insert(QStringLiteral("description"),
                  ReadText([&](WideChar* b, int s) { return workflow->GetDescription(b, s); }));
    object.insert(QStringLiteral("toolTip"),
                  ReadText([&](WideChar* b, int s) { return workflow->GetToolTip(b, s); }));
    object.insert(QStringLiteral("tag"),
                  ReadText([&](WideChar* b, int s) { return workflow->GetTag(b, s); }));
    object.insert(QStringLiteral("keywords"),
                  ReadText([&](WideChar* b, int s) { return workflow->GetKeywords(b, s); }));
    object.insert(QStringLiteral("uiFile"),
                  ReadText([&](WideChar* b, int s) { return workflow->GetUIFile(b, s); }));
    object.insert(QStringLiteral("requiredProductsDisplayText"), ReadText([&](WideChar* b, int s) {
                      return workflow->GetRequiredProductsDisplayText(b, s);
                  }));
    object.insert(QStringLiteral("created"), IsoDate(workflow->GetCreatedDate()));
    object.insert(QStringLiteral("lastModified"), IsoDate(workflow->GetLastModifiedDate()));
    object.insert(QStringLiteral("introduction"),
                  ReadText([&](WideChar* b, int s) { return workflow->GetIntroduction(b, s); }));
    object.insert(QStringLiteral("settings"),
                  ReadText([&](WideChar* b, int s) { return workflow->GetSettings(b, s); }));
    QJsonObject images;
    for (int size : {16, 32})
    {
        images.insert(QString::number(size), ReadText([&](WideChar* b, int s) {
                          return workflow->GetImage(WorkflowImageAutomatic, size, b, s);
                      }));
    }
    object.insert(QStringLiteral("images"), images);
    return object;
}

void PrintJson(const QJsonDocument& document)
{
    Out() << QString::fromUtf8(document.toJson(QJsonDocument::Indented));
}

// Prints rows as one JSON array, or one line per row as printLine writes it.
template <typename PrintLine> void PrintRows(const QJsonArray& rows, bool json, PrintLine printLine)
{
    if (json)
    {
        PrintJson(QJsonDocument(rows));
        return;
    }
    for (const QJsonValue& value : rows)
        printLine(value.toObject());
}

// Texts come from files anyone may write: in the line-based output a control character (a line
// break, an escape sequence) is shown as an escape, so that no text can forge lines of its own.
QString Printable(const QString& text)
{
    QString result;
    result.reserve(text.size());
    for (const QChar c : text)
    {
        const QChar::Category category = c.category();
        if (c == QLatin1Char('\\'))
            result += QStringLiteral("\\\\");
        else if (c == QLatin1Char('\n'))
            result += QStringLiteral("\\n");
        else if (c == QLatin1Char('\r'))
            result += QStringLiteral("\\r");
        else if (c == QLatin1Char('\t'))
            result += QStringLiteral("\\t");
        else if (category == QChar::Other_Control || category == QChar::Separator_Line ||
                 category == QChar::Separator_Paragraph || category == QChar::Other_Format)
            result += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        else
            result += c;
    }
    return result;
}

int List(WorkflowManager* manager, const QString& filter, const QString& sort, bool json)
{
    std::unique_ptr<WorkflowIterator> it(manager->GetWorkflows(Wide(filter), Wide(sort)));
    QJsonArray rows;
    while (it->MoveNext())
    {
        QJsonObject row = Summary(it->GetCurrent());
        row.insert(QStringLiteral("isExecutable"), RunsHere(it->GetCurrent()));
        rows.append(row);
    }
    PrintRows(rows, json, [](const QJsonObject& row) {
        Out() << (row.value(QStringLiteral("isTemplate")).toBool() ? "template  " : "workflow  ")
              << (row.value(QStringLiteral("isExecutable")).toBool() ? "runs here      " : "cannot run here")
              << "  " << Printable(row.value(QStringLiteral("id")).toString()) << "  "
              << Printable(row.value(QStringLiteral("name")).toString()) << '\n';
    });
    if (!json)
        Out() << rows.size() << (rows.size() == 1 ? " workflow\n" : " workflows\n");
    return Success;
}

int Show(WorkflowManager* manager, const QString& id, bool json)
{
    Workflow* workflow = manager->GetWorkflow(Wide(id), Wide(QString()));
    if (!workflow)
        return Fail(ActionFailed, QStringLiteral("no workflow has the id \"%1\".").arg(id));
    QJsonObject details = Details(workflow);
    details.insert(QStringLiteral("isExecutable"), RunsHere(workflow));
    if (json)
    {
        PrintJson(QJsonDocument(details));
        return Success;
    }
    for (auto it = details.constBegin(); it != details.constEnd(); ++it)
    {
        QString value;
        if (it.value().isBool())
            value = it.value().toBool() ? QStringLiteral("yes") : QStringLiteral("no");
        else if (it.value().isObject())
            value = QString::fromUtf8(QJsonDocument(it.value().toObject()).toJson(QJsonDocument::Compact));
        else
            value = it.value().toString();
        Out() << it.key() << ": " << Printable(value) << '\n';
    }
    return Success;
}

int Delete(WorkflowManager* manager, const QString& id, bool keepFile)
{
    Workflow* workflow = manager->GetWorkflow(Wide(id), Wide(QString()));
    if (!workflow)
        return Fail(ActionFailed, QStringLiteral("no workflow has the id \"%1\".").arg(id));
    if (workflow->IsTemplate())
        return Fail(
            ActionFailed,
            QStringLiteral("the workflow \"%1\" is a template, and templates cannot be deleted.").arg(id));
    const QString sourceFile = ReadText([&](WideChar* b, int s) { return workflow->GetSourceFile(b, s); });
    if (!manager->DeleteWorkflow(Wide(id), Wide(sourceFile), !keepFile))
        return Fail(ActionFailed,
                    QStringLiteral("the workflow \"%1\" could not be deleted from %2.").arg(id, sourceFile));
    Out() << "deleted " << id << (keepFile ? " (file kept)\n" : "\n");
    return Success;
}

int Products(WorkflowManager* manager, const QString& ids, bool json)
{
    QJsonArray rows;
    for (const QString& id : ids.split(QLatin1Char(','), Qt::SkipEmptyParts))
    {
        const Wide wideId(id);
        QJsonObject row;
        row.insert(QStringLiteral("id"), id);
        row.insert(QStringLiteral("name"),
                   ReadText([&](WideChar* b, int s) { return manager->ProductIdsToNameList(wideId, b, s); }));
        // The hub-name call cannot say how long its texts are; product lists are short.
        std::vector<WideChar> names(4096, 0);
        std::vector<WideChar> versions(4096, 0);
        manager->ProductIdsToOstrelNameList(wideId, names.data(), int(names.size()), versions.data(),
                                            int(versions.size()));
        row.insert(QStringLiteral("hubName"), VmWorkflowTool::FromWide(names.data()));
        row.insert(QStringLiteral("version"), VmWorkflowTool::FromWide(versions.data()));
        const int count = manager->GetInstalledProducts(wideId, nullptr, 0);
        std::vector<long long> infoIds(size_t(count > 0 ? count : 0));
        const int written = count > 0 ? manager->GetInstalledProducts(wideId, infoIds.data(), count) : 0;
        QJsonArray installed;
        for (int i = 0; i < written; ++i)
            installed.append(double(infoIds[size_t(i)]));
        row.insert(QStringLiteral("installed"), !installed.isEmpty());
        row.insert(QStringLiteral("infoIds"), installed);
        rows.append(row);
    }
    PrintRows(rows, json, [](const QJsonObject& row) {
        const QString name = row.value(QStringLiteral("name")).toString();
        Out() << row.value(QStringLiteral("id")).toString() << "  "
              << (name.isEmpty() ? QStringLiteral("(unknown product)") : name) << "  hub name "
              << row.value(QStringLiteral("hubName")).toString() << "  version "
              << (row.value(QStringLiteral("version")).toString().isEmpty()
                      ? QStringLiteral("any")
                      : row.value(QStringLiteral("version")).toString())
              << "  " << (row.value(QStringLiteral("installed")).toBool() ? "installed" : "not installed")
              << '\n';
    });
    return Success;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vmworkflow"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VMWORKFLOWCORE_VERSION_STRING));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Lists, shows and manages workflows.\n\n"
        "Commands:\n"
        "  list [--filter TEXT] [--sort TEXT] [--json]   the workflows found\n"
        "  show ID [--json]                              one workflow in full\n"
        "  delete ID [--keep-file]                       delete a user workflow\n"
        "  new-name BASE                                 a free name for a new workflow\n"
        "  products IDS [--json]                         product names, hub names, versions and\n"
        "                                                whether they are installed (ids joined by \",\")\n"
        "  run ID [--launch-point N] [--wait] [--json]   run a workflow in the host application;\n"
        "      [--set KEY=VALUE]...                      --wait follows it and exits with its status;\n"
        "                                                --set passes /KEY=VALUE to the host\n"
        "  running [--json]                              the workflows running for this user\n\n"
        "Filter items are key=value (IsExecutable, IsTemplate, PrimaryProduct, TargetProduct,\n"
        "RequiredProduct) joined by \",\"; sort items are key:0 (ascending) or key:1 (descending)\n"
        "joined by \",\", the first written deciding first; Name is a sort key too."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption searchPaths(
        QStringLiteral("search-paths"),
        QStringLiteral("Workflow folders joined by \";\" (default: the bundled samples)."),
        QStringLiteral("paths"));
    const QCommandLineOption locale(QStringLiteral("locale"),
                                    QStringLiteral("Locale of the texts, such as de-DE."),
                                    QStringLiteral("name"));
    const QCommandLineOption filter(QStringLiteral("filter"), QStringLiteral("Filter text for list."),
                                    QStringLiteral("text"));
    const QCommandLineOption sort(QStringLiteral("sort"), QStringLiteral("Sort text for list."),
                                  QStringLiteral("text"));
    const QCommandLineOption pluginPaths(
        QStringLiteral("plugin-paths"),
        QStringLiteral("Plug-in folders joined by \";\" (default: beside the tool)."),
        QStringLiteral("paths"));
    const QCommandLineOption launchPoint(
        QStringLiteral("launch-point"),
        QStringLiteral("Where run says the launch came from: 0 application menu, "
                       "1 workflow browser, 2 workflow editor, 3 ribbon (default 0)."),
        QStringLiteral("number"), QStringLiteral("0"));
    const QCommandLineOption wait(
        QStringLiteral("wait"),
        QStringLiteral("With run: follow the run to its end and exit with its status."));
    const QCommandLineOption setArgument(
        QStringLiteral("set"),
        QStringLiteral("With run: one more /KEY=VALUE argument for the host and "
                       "the workflow's plug-in (may be repeated)."),
        QStringLiteral("key=value"));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Print JSON."));
    const QCommandLineOption keepFile(QStringLiteral("keep-file"),
                                      QStringLiteral("Delete from the catalogue only; leave the file."));
    parser.addOptions(
        {searchPaths, pluginPaths, locale, filter, sort, json, keepFile, launchPoint, wait, setArgument});
    parser.addPositionalArgument(QStringLiteral("command"),
                                 QStringLiteral("list, show, delete, new-name, products, run or running"));
    parser.addPositionalArgument(QStringLiteral("argument"), QStringLiteral("the command's argument"),
                                 QStringLiteral("[argument]"));

    if (!parser.parse(QCoreApplication::arguments()))
        return Fail(BadCommandLine, parser.errorText() + QLatin1Char('.'));
    if (parser.isSet(QStringLiteral("help")))
    {
        Out() << parser.helpText();
        return Success;
    }
    if (parser.isSet(QStringLiteral("version")))
    {
        Out() << QCoreApplication::applicationName() << ' ' << QCoreApplication::applicationVersion() << '\n';
        return Success;
    }

    const QStringList positional = parser.positionalArguments();
    if (positional.isEmpty())
        return Fail(BadCommandLine, QStringLiteral("a command is missing; see --help."));
    const QString command = positional.first();
    const QStringList rest = positional.mid(1);
    const auto expectArguments = [&](int count, const QString& what) -> QString {
        if (rest.size() < count)
            return QStringLiteral("the %1 command needs %2.").arg(command, what);
        if (rest.size() > count)
            return QStringLiteral("the %1 command takes no argument \"%2\".").arg(command, rest.at(count));
        return QString();
    };
    const auto onlyFor = [&](const QCommandLineOption& option, const QStringList& commands) -> QString {
        if (parser.isSet(option) && !commands.contains(command))
            return QStringLiteral("--%1 does not apply to the %2 command.")
                .arg(option.names().first(), command);
        return QString();
    };

    QString problem;
    if (command == QLatin1String("list"))
        problem = expectArguments(0, QString());
    else if (command == QLatin1String("show"))
        problem = expectArguments(1, QStringLiteral("a workflow id"));
    else if (command == QLatin1String("delete"))
        problem = expectArguments(1, QStringLiteral("a workflow id"));
    else if (command == QLatin1String("new-name"))
        problem = expectArguments(1, QStringLiteral("a base name"));
    else if (command == QLatin1String("products"))
        problem = expectArguments(1, QStringLiteral("product ids joined by \",\""));
    else if (command == QLatin1String("run"))
        problem = expectArguments(1, QStringLiteral("a workflow id"));
    else if (command == QLatin1String("running"))
        problem = expectArguments(0, QString());
    else
        problem = QStringLiteral("the command \"%1\" is unknown; see --help.").arg(command);
    for (const QString& check :
         {onlyFor(filter, {QStringLiteral("list")}), onlyFor(sort, {QStringLiteral("list")}),
          onlyFor(json, {QStringLiteral("list"), QStringLiteral("show"), QStringLiteral("products"),
                         QStringLiteral("run"), QStringLiteral("running")}),
          onlyFor(keepFile, {QStringLiteral("delete")}), onlyFor(wait, {QStringLiteral("run")}),
          onlyFor(launchPoint, {QStringLiteral("run")}), onlyFor(setArgument, {QStringLiteral("run")})})
    {
        if (problem.isEmpty())
            problem = check;
    }
    if (problem.isEmpty() && parser.isSet(filter))
        problem = CheckFilterText(parser.value(filter));
    if (problem.isEmpty() && parser.isSet(sort))
        problem = CheckSortText(parser.value(sort));
    bool launchPointIsNumber = true;
    const int launchPointValue = parser.value(launchPoint).toInt(&launchPointIsNumber);
    if (problem.isEmpty() && !launchPointIsNumber)
        problem = QStringLiteral("the launch point \"%1\" is not a number.").arg(parser.value(launchPoint));
    QMap<QString, QString> launchArguments;
    for (const QString& pair : parser.values(setArgument))
    {
        const qsizetype equals = pair.indexOf(QLatin1Char('='));
        if (equals <= 0 && problem.isEmpty())
            problem = QStringLiteral("the argument \"%1\" is not of the form KEY=VALUE.").arg(pair);
        else if (equals > 0)
            launchArguments.insert(pair.left(equals), pair.mid(equals + 1));
    }
    if (!problem.isEmpty())
        return Fail(BadCommandLine, problem);

    const QString paths = parser.isSet(searchPaths) ? parser.value(searchPaths) : DefaultSearchPaths();
    for (const QString& folder : paths.split(QLatin1Char(';'), Qt::SkipEmptyParts))
    {
        const QFileInfo info(folder);
        if (!info.isDir() || !info.isReadable() || !info.isExecutable())
            return Fail(ActionFailed,
                        QStringLiteral("the workflow folder \"%1\" cannot be read.").arg(folder));
    }

    if (!parser.isSet(searchPaths))
        VmWorkflowTool::UseSampleApplications();
    VmWorkflowTool::UseBuiltHostApplication();
    VmWorkflowTool::UseInstalledMachineSettings();

    WorkflowManager::Initialize();
    WorkflowManager* manager = WorkflowManager::GetInstance();
    if (parser.isSet(locale))
        manager->SetCurrentLocale(Wide(parser.value(locale)));
    else if (QLocale::system().name() == QLatin1String("C"))
        manager->SetCurrentLocale(Wide(QStringLiteral("en-US"))); // a machine without a language set
    manager->SetWorkflowSearchPaths(Wide(paths));
    if (parser.isSet(pluginPaths))
        manager->SetWorkflowPluginSearchPaths(Wide(parser.value(pluginPaths)));

    int status = Success;
    if (command == QLatin1String("list"))
        status = List(manager, parser.value(filter), parser.value(sort), parser.isSet(json));
    else if (command == QLatin1String("show"))
        status = Show(manager, rest.first(), parser.isSet(json));
    else if (command == QLatin1String("delete"))
        status = Delete(manager, rest.first(), parser.isSet(keepFile));
    else if (command == QLatin1String("products"))
        status = Products(manager, rest.first(), parser.isSet(json));
    else if (command == QLatin1String("run"))
    {
        QTextStream err(stderr);
        status = VmWorkflowTool::Run(
            manager,
            {rest.first(), launchPointValue, parser.isSet(wait), parser.isSet(json), launchArguments}, Out(),
            err);
    }
    else if (command == QLatin1String("running"))
        status = VmWorkflowTool::Running(manager, parser.isSet(json), Out());
    else
        Out() << WorkflowPrivate::GetNewWorkflowName(rest.first()) << '\n';
    Out().flush();
    WorkflowManager::Uninitialize();
    return status;
}
