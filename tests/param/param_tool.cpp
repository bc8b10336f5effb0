// A second process for the store's suite. Texts on the command line are hex-encoded UTF-8, so that any
// byte reaches the store whatever the locale. The service loader also prints to standard output, so the
// tool's own answers are lines that begin with "value=" or "wrote=".
//   set <section> <key> <value>          exit 0 when SetParam answered 1
//   get <section> <key> <default>        prints value=<the value, hex>
//   fill <section> <prefix> <count>      sets <prefix><i> = <i>; the exit code counts failed writes
//   churn <section> <key> <size>         rewrites "<n>:" and <size> copies of a letter chosen by n until
//                                        killed, printing wrote=<n> after each
#include <cstdio>
#include <string>

#include <QCoreApplication>
#include <QStringList>

#include "Param.h"

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList lstArgs = app.arguments();
    const QString qstrCommand = lstArgs.size() == 5 ? lstArgs.at(1) : QString();
    const std::string strSection = QByteArray::fromHex(lstArgs.value(2).toLatin1()).toStdString();
    const std::string strKey = QByteArray::fromHex(lstArgs.value(3).toLatin1()).toStdString();
    const int iNumber = lstArgs.value(4).toInt();

    if (qstrCommand == "set") {
        const std::string strValue = QByteArray::fromHex(lstArgs.value(4).toLatin1()).toStdString();
        return Param::SetParam(strSection, strKey, strValue, 1) == 1 ? 0 : 1;
    }
    if (qstrCommand == "get") {
        const std::string strDefault = QByteArray::fromHex(lstArgs.value(4).toLatin1()).toStdString();
        const std::string strValue = Param::GetParam(strSection, strKey, strDefault);
        std::printf("\nvalue=%s\n", QByteArray::fromStdString(strValue).toHex().constData());
        return 0;
    }
    if (qstrCommand == "fill") {
        int iFailed = 0;
        for (int i = 0; i < iNumber; ++i) {
            iFailed += Param::SetParam(strSection, strKey + std::to_string(i), std::to_string(i), 1) != 1;
        }
        return iFailed;
    }
    if (qstrCommand == "churn") {
        for (long long llNumber = 1;; ++llNumber) {
            const std::string strValue =
                std::to_string(llNumber) + ":" + std::string(size_t(iNumber), char('a' + llNumber % 26));
            if (Param::SetParam(strSection, strKey, strValue, 1) != 1) {
                return 1;
            }
            std::printf("\nwrote=%lld\n", llNumber);
            std::fflush(stdout);
        }
    }
    std::fprintf(stderr,
                 "usage: param_tool set|get|fill|churn <hex section> <hex key> <hex value|count|size>\n");
    return 2;
}
