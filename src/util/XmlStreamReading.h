// SPDX-License-Identifier: MIT
#pragma once

#include "util/CompactText.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <array>
#include <functional>

// Reading the library's large XML files in one streaming pass, into plain data. A catalogue of
// thousands of workflows, or a settings file of many users' choices, then costs little more
// than the bytes of the file and the records made from them, where a whole document tree costs
// many times the file. The plain data is what the document reader yields for the same bytes:
// the same elements, the same raw attribute values, the same inner markup, character for
// character. Nothing here touches a QObject, so it may run on any thread.
namespace Velmora::WorkflowCore {

class XlfCatalog;

// What became of a file handed to a streaming reader.
enum class StreamReadResult
{
    Read,          // the whole file was well-formed; the data is complete
    Unreadable,    // missing, not a regular file, unreadable, malformed or nested too deep
    NeedsDocument, // it declares a document type, whose entities only the document reader expands
};

// The bytes of a regular file, read at once; false for a missing, special or unreadable file.
bool ReadRegularFileBytes(const QString& path, QByteArray& bytes);

// The attributes of a workflow element that a record is read from.
enum WorkflowAttribute
{
    AttrPlugin,
    AttrIsTemplate,
    AttrIsReadOnly,
    AttrTemplateId,
    AttrId,
    AttrHelpId,
    AttrName,
    AttrDescription,
    AttrTooltip,
    AttrTag,
    AttrKeywords,
    AttrUIFile,
    AttrPrimaryProduct,
    AttrTargetProduct,
    AttrRequiredProducts,
    AttrRequiredProductsDisplayText,
    AttrCreatedDate,
    AttrLastModifiedDate,
    AttrTemplateImage,
    AttrModifiedImage,
    WorkflowAttributeCount
};

// The name of the attribute as written in a file.
QString WorkflowAttributeName(WorkflowAttribute attribute);

// One child element of a workflow file's root, untranslated.
struct WorkflowElementData
{
    QString tag;
    // The raw value of each attribute a record reads; present tells an absent one from an empty one.
    std::array<QString, WorkflowAttributeCount> values;
    std::array<bool, WorkflowAttributeCount> present{};
    // The first "Introduction" child: whether there is one, and the data of its first child when
    // that is text or a character-data section (null otherwise).
    bool hasIntroduction = false;
    QString introduction;
    // The first "Settings" child: whether there is one, and its children written out with an
    // indent of four, as the document writer writes them.
    bool hasSettings = false;
    CompactText settings;

    const QString& Value(WorkflowAttribute attribute) const { return values[attribute]; }
    bool Has(WorkflowAttribute attribute) const { return present[attribute]; }
};

// A workflow file: its root's "XlfFile" attribute and its root's child elements in order.
struct WorkflowFileData
{
    bool hasXlfFile = false;
    QString xlfFile;
    QList<WorkflowElementData> elements;
};

// Asked of each element as its attributes are read, with what the read has kept so far (the
// root's XlfFile among it): whether to keep it. An element left out costs nothing more, whatever
// its Settings hold. It must answer from those two alone: a file may be read again from its
// start another way, and is asked about again.
using ElementFilter = std::function<bool(const WorkflowFileData& kept, const WorkflowElementData& element)>;

// Parses the bytes of a workflow file. With a non-empty firstTag, the elements before the first
// one of that tag are left out (a file's records start at its first "Workflow"); so are those the
// filter turns down. Nothing is kept unless the result is Read.
StreamReadResult ParseWorkflowFile(const QByteArray& bytes, const QString& firstTag, WorkflowFileData& data,
                                   const ElementFilter& keep = ElementFilter());

// The same through the general streaming reader alone, for any file ParseWorkflowFile takes:
// what a file outside the common shape is read with, and the reference that shape is held to.
StreamReadResult ParseWorkflowFileWithReader(const QByteArray& bytes, const QString& firstTag,
                                             WorkflowFileData& data,
                                             const ElementFilter& keep = ElementFilter());

// The same plain data taken from the whole document: for files that declare a document type,
// and as the reference the streaming reader is held to.
StreamReadResult ReadWorkflowFileFromDocument(const QString& path, const QString& firstTag,
                                              WorkflowFileData& data);

// Reads the file: streaming, or through the document when the file asks for it (which keeps
// every element: callers filter again).
StreamReadResult ReadWorkflowFileData(const QString& path, const QString& firstTag, WorkflowFileData& data,
                                      const ElementFilter& keep = ElementFilter());

// For each element of the run an absolute element path selects (its last element and the
// following sibling elements of any name, as the filer walks them), hands the element's
// attributes to the visitor as qualified name and value pairs, in document order. A path of
// "/A/B/C" in a document whose element is not "A" is followed below that element, as the filer
// does. The visitor is called during the parse; the caller drops what it gathered unless the
// result is Read.
using AttributeVisitor = std::function<void(const QList<std::pair<QString, QString>>& attributes)>;
StreamReadResult ParseElementRun(const QByteArray& bytes, const QString& absolutePath,
                                 const AttributeVisitor& visitor);

// The text as the filer's translation step gives it for a file of that name: a tr(...) text
// replaced by its translation from the catalogue when there is one.
QString TranslatedFileText(XlfCatalog* catalog, const QString& fileName, const QString& text);

} // namespace Velmora::WorkflowCore
