#include "FunctionUtil.h"

#include <cstdlib>
#include <mutex>
#include <string>

#include <libgen.h>

#include <QDir>
#include <QFile>
#include <QMap>

#include "Param.h"
#include "Util.h"

namespace FunctionUtil {
namespace {

// Style files are read once per process.
struct STRUCT_StyleCache
{
    std::mutex mutex;
    QString s_qstrCommonStyle;
    QMap<QString, QString> s_qmapStyle;
    double dScale = -1.0;
};

STRUCT_StyleCache& StyleCache()
{
    static STRUCT_StyleCache cache;
    return cache;
}

QString SkinName()
{
    const QString qstrSkin = QString::fromStdString(Param::GetParam("SystemConfig", "skin", "dark"));
    return qstrSkin.isEmpty() ? QString("dark") : qstrSkin;
}

// Relative image paths in a sheet are made to point into the installed skin.
QString ReadStyleFile(const QString& _qstrPath)
{
    QFile file(_qstrPath);
    if (!file.open(QIODevice::ReadOnly)) {
        return QString();
    }
    return QString::fromUtf8(file.readAll()).replace("./resource/skin/", GetBinPath() + "/resource/skin/");
}

QString ModuleFolder(const QString& _qstrModuleCode)
{
    if (_qstrModuleCode.startsWith("Wgt") || _qstrModuleCode.startsWith("Module") ||
        _qstrModuleCode.startsWith("Hx")) {
        return _qstrModuleCode;
    }
    return QString("Module%1").arg(_qstrModuleCode);
}

double ScreenScale()
{
    STRUCT_StyleCache& cache = StyleCache();
    std::lock_guard<std::mutex> lock(cache.mutex);
    if (cache.dScale < 0.0) {
        const char* pScale = std::getenv("QT_SCALE_FACTOR");
        cache.dScale =
            (pScale != nullptr && pScale[0] != '\0') ? QString::fromLatin1(pScale).toDouble() : 0.0;
    }
    return cache.dScale;
}

// The module's own sheet, read once per file.
QString ModuleStyle(const QString& _qstrModuleCode, const QString& _qstrClassCode)
{
    const QString qstrFolder = ModuleFolder(_qstrModuleCode);
    const QString qstrFileBase = _qstrClassCode.isEmpty() ? qstrFolder : _qstrClassCode;
    QString qstrPath;
    if (!GetQssPath(qstrFolder, qstrFileBase, qstrPath)) {
        return QString();
    }
    STRUCT_StyleCache& cache = StyleCache();
    std::lock_guard<std::mutex> lock(cache.mutex);
    auto it = cache.s_qmapStyle.find(qstrPath);
    if (it == cache.s_qmapStyle.end()) {
        it = cache.s_qmapStyle.insert(qstrPath, ReadStyleFile(qstrPath));
    }
    return it.value();
}

} // namespace

QString GetBinPath()
{
    std::string strPath = Util::ExecutablePath();
    if (strPath.empty()) {
        return QString("./");
    }
    return QString::fromLocal8Bit(dirname(strPath.data()));
}

bool GetQssPath(const QString& _qstrModuleFolder, const QString& _qstrFileBase, QString& _qstrQssPath)
{
    if (_qstrModuleFolder.isEmpty() || _qstrFileBase.isEmpty()) {
        return false;
    }
    const QString qstrStem = QString("%1/resource/skin/%2/%3/qss/%4")
                                 .arg(GetBinPath(), SkinName(), _qstrModuleFolder, _qstrFileBase);
    const double dScale = ScreenScale();
    // The suffix names the screen class: a scale of 2 is a 4K screen.
    const QString qstrScaled = QString("%1_%2K.qss").arg(qstrStem, QString::number(dScale * 2, 'g'));
    _qstrQssPath = (dScale > 1.0 && QFile::exists(qstrScaled)) ? qstrScaled : QString("%1.qss").arg(qstrStem);
    return QFile::exists(_qstrQssPath);
}

QString LoadStyle(const QString& _qstrModuleCode, QWidget* _pWidget, const QString& _qstrClassCode)
{
    Q_UNUSED(_pWidget)
    const QString qstrCommonDir = QString("%1/resource/skin/%2/Common").arg(GetBinPath(), SkinName());
    QString qstrStyle;
    {
        STRUCT_StyleCache& cache = StyleCache();
        std::lock_guard<std::mutex> lock(cache.mutex);
        if (cache.s_qstrCommonStyle.isEmpty()) {
            const QDir dir(qstrCommonDir);
            for (const QString& qstrEntry : dir.entryList(QDir::Files)) {
                cache.s_qstrCommonStyle.append(ReadStyleFile(qstrCommonDir + "/" + qstrEntry));
            }
        }
        qstrStyle = cache.s_qstrCommonStyle;
    }
    return qstrStyle + ModuleStyle(_qstrModuleCode, _qstrClassCode);
}

QString LoadStyleMini(const QString& _qstrModuleCode, QWidget* _pWidget, const QString& _qstrClassCode)
{
    Q_UNUSED(_pWidget)
    return ModuleStyle(_qstrModuleCode, _qstrClassCode);
}

} // namespace FunctionUtil
