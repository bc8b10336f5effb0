// A second process for the store's suites. Texts on the command line are hex-encoded UTF-8, so that any
// byte reaches the store whatever the locale. The service loader also prints to standard output, so the
// tool's own answers are lines that begin with "value=" or "wrote=".
//   set <section> <key> <value>          exit 0 when SetParam answered 1
//   get <section> <key> <default>        prints value=<the value, hex>
//   fill <section> <prefix> <count>      sets <prefix><i> = <i>; the exit code counts failed writes
//   churn <section> <key> <size>         rewrites one large value until killed, printing wrote=<n> after each
#include <cstdio>
#include <string>

#include <QByteArray>
#include <QCoreApplication>
#include <QStringList>

#include "Param.h"

namespace {

std::string Arg(const QStringList& _lstArgs, int _iIndex)
{
    const QByteArray baText = QByteArray::fromHex(_lstArgs.value(_iIndex).toLatin1());
    return std::string(baText.constData(), static_cast<size_t>(baText.size()));
}

// "<n>:" then <size> copies of one letter that depends on n: a reader can tell a whole value from a torn one.
std::string ChurnValue(long long _llNumber, int _iSize)
{
    return std::to_string(_llNumber) + ":" +
           std::string(static_cast<size_t>(_iSize), char('a' + _llNumber % 26));
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList lstArgs = app.arguments();
    const QString qstrCommand = lstArgs.value(1);

    if (qstrCommand == "set" && lstArgs.size() == 5) {
        return Param::SetParam(Arg(lstArgs, 2), Arg(lstArgs, 3), Arg(lstArgs, 4), 1) == 1 ? 0 : 1;
    }
    if (qstrCommand == "get" && lstArgs.size() == 5) {
        const std::string strValue = Param::GetParam(Arg(lstArgs, 2), Arg(lstArgs, 3), Arg(lstArgs, 4));
        const QByteArray baHex = QByteArray(strValue.data(), static_cast<int>(strValue.size())).toHex();
        std::printf("\nvalue=%s\n", baHex.constData());
        return 0;
    }
    if (qstrCommand == "fill" && lstArgs.size() == 5) {
        const std::string strSection = Arg(lstArgs, 2);
        const std::string strPrefix = Arg(lstArgs, 3);
        const int iCount = lstArgs.value(4).toInt();
        int iFailed = 0;
        for (int i = 0; i < iCount; ++i) {
            if (Param::SetParam(strSection, strPrefix + std::to_string(i), std::to_string(i), 1) != 1) {
                ++iFailed;
            }
        }
        return iFailed;
    }
    if (qstrCommand == "churn" && lstArgs.size() == 5) {
        const std::string strSection = Arg(lstArgs, 2);
        const std::string strKey = Arg(lstArgs, 3);
        const int iSize = lstArgs.value(4).toInt();
        for (long long llNumber = 1;; ++llNumber) {
            if (Param::SetParam(strSection, strKey, ChurnValue(llNumber, iSize), 1) != 1) {
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
