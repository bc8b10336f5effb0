// A second process for the style suite: the style caches live as long as a process, and the skin tree is
// found beside the executable, so each case runs a fresh copy of this tool placed in a tree of its own.
// Answers are lines that begin with "answer=" (hex-encoded UTF-8), since the service loader also prints.
//   binpath                                  the application folder
//   qsspath <folder> <file base>             "1 <path>" or "0 <path>"
//   load <module code> <class code>          FunctionUtil::LoadStyle
//   mini <module code> <class code>          FunctionUtil::LoadStyleMini
//   reload <module code> <class code> <file> LoadStyle, then the file is changed on disk, then LoadStyle
//   again
// An optional first argument "--skin <name>" stores the skin name in the parameter store first.
#include <cstdio>

#include <QCoreApplication>
#include <QFile>
#include <QStringList>

#include "FunctionUtil.h"
#include "Param.h"

namespace {

void Answer(const QString& _qstrText)
{
    std::printf("\nanswer=%s\n", _qstrText.toUtf8().toHex().constData());
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QStringList lstArgs = app.arguments().mid(1);
    if (lstArgs.value(0) == "--skin") {
        if (Param::SetParam("SystemConfig", "skin", lstArgs.value(1).toStdString(), 1) != 1) {
            return 2;
        }
        lstArgs = lstArgs.mid(2);
    }
    const QString qstrCommand = lstArgs.value(0);
    if (qstrCommand == "binpath") {
        Answer(FunctionUtil::GetBinPath());
        return 0;
    }
    if (qstrCommand == "qsspath" && lstArgs.size() == 3) {
        QString qstrPath;
        const bool blFound = FunctionUtil::GetQssPath(lstArgs.value(1), lstArgs.value(2), qstrPath);
        Answer(QString("%1 %2").arg(blFound ? 1 : 0).arg(qstrPath));
        return 0;
    }
    if (qstrCommand == "load" && lstArgs.size() == 3) {
        Answer(FunctionUtil::LoadStyle(lstArgs.value(1), nullptr, lstArgs.value(2)));
        return 0;
    }
    if (qstrCommand == "mini" && lstArgs.size() == 3) {
        Answer(FunctionUtil::LoadStyleMini(lstArgs.value(1), nullptr, lstArgs.value(2)));
        return 0;
    }
    if (qstrCommand == "reload" && lstArgs.size() == 4) {
        Answer(FunctionUtil::LoadStyle(lstArgs.value(1), nullptr, lstArgs.value(2)));
        QFile file(lstArgs.value(3));
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write("changed {}") < 0) {
            return 3;
        }
        file.close();
        Answer(FunctionUtil::LoadStyle(lstArgs.value(1), nullptr, lstArgs.value(2)));
        return 0;
    }
    return 1;
}
