// SPDX-License-Identifier: MIT
// Prints the translation file that the library finds for a name, a locale and search paths, as seen
// from this program's folder. The test copies this program into a folder of its own, so that a
// translation can lie beside it without lying beside every other test program.
//   translation_child <file name> <locale> <search paths joined by ";">

#include "util/XlfCatalog.h"

#include <QCoreApplication>
#include <QTextStream>

using namespace Velmora::WorkflowCore;

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() != 4)
        return 2;
    QTextStream(stdout) << FindTranslationFile(arguments.at(1), arguments.at(2), arguments.at(3)) << Qt::endl;
    return 0;
}
