// A fresh process for the style suite: the style caches live as long as a process, and the skin tree is
// found beside the executable. Each argument is a query with ':' between its fields, answered in order by a
// line "answer=<hex UTF-8>", since the service loader prints too:
//   binpath | qsspath:<folder>:<file base> | load:<module code>:<class code> | mini:<module code>:<class
//   code> write:<file> overwrites the file with "changed {}" and answers nothing.
// A first argument "--skin" stores the next one as the skin name in the parameter store.
#include <cstdio>

#include <QCoreApplication>
#include <QFile>
#include <QStringList>

#include "FunctionUtil.h"
#include "Param.h"

static void Answer(const QString& _qstrText)
{
    std::printf("\nanswer=%s\n", _qstrText.toUtf8().toHex().constData());
}

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
    for (const QString& qstrQuery : lstArgs) {
        const QStringList lstFields = qstrQuery.split(':');
        const QString qstrCommand = lstFields.value(0);
        QString qstrPath;
        if (qstrCommand == "binpath") {
            Answer(FunctionUtil::GetBinPath());
        } else if (qstrCommand == "qsspath") {
            const bool blFound = FunctionUtil::GetQssPath(lstFields.value(1), lstFields.value(2), qstrPath);
            Answer(QString("%1 %2").arg(blFound ? 1 : 0).arg(qstrPath));
        } else if (qstrCommand == "load") {
            Answer(FunctionUtil::LoadStyle(lstFields.value(1), nullptr, lstFields.value(2)));
        } else if (qstrCommand == "mini") {
            Answer(FunctionUtil::LoadStyleMini(lstFields.value(1), nullptr, lstFields.value(2)));
        } else if (qstrCommand == "write") {
            QFile file(lstFields.value(1));
            if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write("changed {}") < 0) {
                return 3;
            }
        } else {
            return 1;
        }
    }
    return 0;
}
