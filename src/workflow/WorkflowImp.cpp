// SPDX-License-Identifier: MIT
#include "workflow/WorkflowImp.h"

#include "execution/Analytics.h"
#include "util/FacadeAccess.h"
#include "util/FileUtil.h"
#include "workflow/WorkflowFile.h"
#include "workflow/WorkflowSettings.h"

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QImageReader>
#include <QUuid>

#include <cstdlib>
#include <limits>

namespace Velmora::WorkflowCore {

namespace {

// Whether the first of the ","-separated products names both a product and a release, as in
// "alpha:2016"; true when there is none. Asked of every record of a scan: read in place.
bool TargetProductIsComplete(const QString& targetProduct)
{
    for (const QStringView first : QStringView(targetProduct).tokenize(u',', Qt::SkipEmptyParts))
    {
        qsizetype parts = 0;
        for (const QStringView part : first.tokenize(u':', Qt::SkipEmptyParts))
        {
            Q_UNUSED(part);
            ++parts;
        }
        return parts == 2;
    }
    return true;
}

int ImageWidth(const QString& path)
{
    // Only a regular file is read: a pipe named as an image would block for ever.
    if (!IsRegularFile(path))
        return 0;
    QImageReader reader(path);
    const QSize size = reader.size();
    if (size.isValid())
        return size.width();
    const QImage image = reader.read();
    return image.isNull() ? 0 : image.width();
}

// "my new flow" becomes "MyNewFlow": the start and every letter after a blank upper-cased,
// then the blanks dropped.
QString CamelCaseId(const QString& name)
{
    QString result = name;
    for (qsizetype i = 0; i < result.size(); ++i)
    {
        if (result.at(i) == QLatin1Char(' '))
            continue;
        if (i == 0 || result.at(i - 1) == QLatin1Char(' '))
            result[i] = result.at(i).toUpper();
    }
    result.remove(QLatin1Char(' '));
    return result;
}

} // namespace

QString SafeFileName(const QString& name)
{
    QString result = name;
    for (QChar& c : result)
    {
        const char16_t u = c.unicode();
        bool forbidden = u == u'/' || u == u'\\' || u == 0;
#ifdef Q_OS_WIN
        forbidden = forbidden || u < 32 || u == u'<' || u == u'>' || u == u':' || u == u'"' || u == u'|' ||
                    u == u'?' || u == u'*';
#endif
        if (forbidden)
            c = QLatin1Char('_');
    }
    // A name of dots alone would name the folder itself or its parent.
    if (!result.isEmpty() && result.count(QLatin1Char('.')) == result.size())
        result.fill(QLatin1Char('_'));
    return result;
}

void WorkflowImp::KeysChanged()
{
    if (WorkflowCatalogue* catalogue = Catalogue())
        catalogue->KeysChanged(m_facade);
}

WorkflowCatalogue* WorkflowImp::Catalogue() const
{
    return m_catalogue ? m_catalogue : CurrentWorkflowCatalogue();
}

WorkflowImp::WorkflowImp(Workflow* facade) : m_facade(facade) {}

WorkflowImp::~WorkflowImp()
{
    if (m.IsTemplate)
        WithSettings([this](WorkflowSettingsStore& settings) {
            WriteShowIntroductionOnExecute(settings, m.Id, m.ShowIntroductionOnExecute);
        });
}

bool WorkflowImp::IsReadOnly() const
{
    return m.IsTemplate || m.IsReadOnly || m.ProductsInherited;
}

unsigned int WorkflowImp::ToInterfaceDate(const QDateTime& date)
{
    if (!date.isValid())
        return 0;
    // Dates before 1970 or after 2106-02-07T06:28:15 UTC have no 32-bit form: they stop at the ends.
    const qint64 seconds = date.toSecsSinceEpoch();
    if (seconds < 0)
        return 0;
    if (seconds > qint64(std::numeric_limits<unsigned int>::max()))
        return std::numeric_limits<unsigned int>::max();
    return static_cast<unsigned int>(seconds);
}

void WorkflowImp::BuildImageTables()
{
    if (m.ImageTablesBuilt)
        return;
    m.ImageTablesBuilt = true;
    const auto build = [this](const QString& images, QMap<int, QString>& table) {
        for (const QString& part : images.split(QLatin1Char('|'), Qt::SkipEmptyParts))
            table.insert(ImageWidth(ResolveImagePath(part)), part);
    };
    build(m.TemplateImage, m.TemplateImages);
    build(m.ModifiedImage, m.ModifiedImages);
}

QMap<int, QString>& WorkflowImp::TableFor(int kind)
{
    if (kind == WorkflowImageAutomatic)
        return m.IsTemplate ? m.TemplateImages : m.ModifiedImages;
    if (kind == WorkflowImageModified)
        return m.ModifiedImages;
    return m.TemplateImages;
}

QString WorkflowImp::GetImage(int kind, int size)
{
    BuildImageTables();
    const QMap<int, QString>& table = TableFor(kind);
    if (table.isEmpty())
        return QString();
    auto chosen = table.lowerBound(size);
    if (chosen == table.end())
        --chosen;
    if (chosen != table.begin())
    {
        const auto before = std::prev(chosen);
        const qint64 distanceBefore = std::llabs(qint64(size) - before.key());
        const qint64 distanceChosen = std::llabs(qint64(chosen.key()) - size);
        if (distanceBefore <= distanceChosen)
            chosen = before;
    }
    return ResolveImagePath(chosen.value());
}

void WorkflowImp::SetImage(int kind, int size, const QString& path)
{
    if (path.isEmpty())
        return;
    BuildImageTables();
    if (size < 1)
        size = ImageWidth(ResolveImagePath(path));
    TableFor(kind).insert(size, path);
}

bool WorkflowImp::Load(const QString& file, const QString& id)
{
    return LoadWorkflow(*this, file, id);
}

bool WorkflowImp::Save()
{
    if (m.IsTemplate)
        return false;
    // Without a name the file would be a hidden ".workflow" that no scan reads.
    const QString fileName = SafeFileName(m.Name);
    if (fileName.isEmpty())
        return false;
    const QString target =
        QFileInfo(m.SourceFile).absolutePath() + QLatin1Char('/') + fileName + QStringLiteral(".workflow");
    // A rename onto another workflow's file must not replace that workflow.
    if (!MayReplaceWorkflowFile(target, m.Id))
        return false;
    if (!WriteWorkflow(*this, m.Name, target, m.Id))
        return false;
    ReportWorkflowModification(m.Id, m.TemplateId);
    m.SourceFile = QDir::cleanPath(target);
    m.IsTemplate = false;
    m.IsModified = false;
    return true;
}

bool WorkflowImp::Save(const QString& path)
{
    if (path.compare(m.SourceFile, Qt::CaseInsensitive) == 0)
        return Save();

    const QFileInfo pathInfo(path);
    QString name = pathInfo.fileName();
    if (pathInfo.suffix() == QLatin1String("workflow"))
        name = pathInfo.completeBaseName();
    const QString idPart = CamelCaseId(name);

    WorkflowCatalogue* catalogue = Catalogue();
    QString folder = catalogue ? catalogue->UserWorkflowFolder() : QString();
    // A new user's folders are made on the first save; only when that fails does the workflow
    // stay beside its source.
    if (folder.isEmpty() || !MakePrivateFolders(folder))
        folder = QFileInfo(m.SourceFile).absolutePath();
    const QString target = folder + QLatin1Char('/') + SafeFileName(name) + QStringLiteral(".workflow");
    const QString newId =
        QStringLiteral("Id_%1_%2").arg(idPart, QUuid::createUuid().toString(QUuid::WithBraces));

    m.CreatedDate = QDateTime::currentDateTime();
    if (SafeFileName(name).isEmpty() || !MayReplaceWorkflowFile(target, newId))
        return false;
    if (!WriteWorkflow(*this, name, target, newId))
        return false;
    ReportWorkflowCreation(m.TemplateId, m.IsModified);
    m.SourceFile = QDir::cleanPath(target);
    m.Id = newId;
    m.Name = name;
    KeysChanged();
    m.IsTemplate = false;
    m.IsModified = false;
    return true;
}

Workflow* WorkflowImp::FindTemplate() const
{
    WorkflowCatalogue* catalogue = Catalogue();
    return catalogue ? catalogue->FindWorkflowFor(m_facade, m.TemplateId, QString()) : nullptr;
}

void WorkflowImp::Reset()
{
    if (m.IsTemplate)
        return;
    Workflow* templ = FindTemplate();
    if (!templ)
        return;
    const WorkflowFields& source = ImpOf(templ)->Fields();
    m.Description = source.Description;
    m.Keywords = source.Keywords;
    m.Settings = source.Settings;
}

void WorkflowImp::CopyFrom(const WorkflowImp& other)
{
    if (&other == this)
        return;
    const bool isModified = m.IsModified;
    m = other.m;
    m.IsModified = isModified;
    KeysChanged();
    if (WorkflowCatalogue* catalogue = Catalogue())
        catalogue->NotifyWorkflowChanged(m.Id, m.SourceFile);
}

QString WorkflowImp::GetUISetting(const QString& key) const
{
    return WithSettings([&](WorkflowSettingsStore& settings) { return settings.Read(m.Id, key); });
}

void WorkflowImp::SetUISetting(const QString& key, const QString& value)
{
    WithSettings([&](WorkflowSettingsStore& settings) { settings.Write(m.Id, key, value); });
}

bool WorkflowImp::HasCompleteTargetProduct() const
{
    return TargetProductIsComplete(m.TargetProduct);
}

void WorkflowImp::InheritProducts()
{
    if (m.IsTemplate || HasCompleteTargetProduct())
        return;
    Workflow* templ = FindTemplate();
    if (!templ || !ImpOf(templ)->HasCompleteTargetProduct())
        return;
    const WorkflowFields& source = ImpOf(templ)->Fields();
    m.PrimaryProduct = source.PrimaryProduct;
    m.RequiredProducts = source.RequiredProducts;
    m.TargetProduct = source.TargetProduct;
    m.ProductsInherited = true;
}

QString WorkflowImp::ResolveImagePath(const QString& path) const
{
    if (path.isEmpty() || QDir::isAbsolutePath(path))
        return path;
    const auto lookIn = [&path](const QString& sourceFile) -> QString {
        if (sourceFile.isEmpty())
            return QString();
        const QFileInfo candidate(QFileInfo(sourceFile).absolutePath() + QLatin1Char('/') + path);
        return candidate.exists() ? candidate.absoluteFilePath() : QString();
    };
    QString resolved = lookIn(m.SourceFile);
    if (resolved.isEmpty() && !m.IsTemplate)
    {
        if (Workflow* templ = FindTemplate())
            resolved = lookIn(ImpOf(templ)->Fields().SourceFile);
    }
    if (resolved.isEmpty() || resolved == path)
        return path;
    return QDir::cleanPath(resolved);
}

} // namespace Velmora::WorkflowCore
