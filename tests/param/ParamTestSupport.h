#pragma once

#include <string>

#include <QByteArray>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaType>
#include <QString>
#include <QTest>

#include "Param.h"
#include "Util.h"

Q_DECLARE_METATYPE(std::string)

namespace QTest {

// Failure messages show the start of a value; some values under test are a megabyte long.
template <>
inline char* toString(const std::string& _str)
{
    const std::string strShown = _str.size() > 200 ? _str.substr(0, 200) + "..." : _str;
    return QTest::toString(QString::fromUtf8(strShown.data(), static_cast<int>(strShown.size())));
}

} // namespace QTest

namespace ParamTest {

inline std::string Utf8(const QString& _qstr)
{
    const QByteArray baUtf8 = _qstr.toUtf8();
    return std::string(baUtf8.constData(), static_cast<size_t>(baUtf8.size()));
}

inline QString StoreFile(const QString& _qstrDataPath)
{
    return _qstrDataPath + "/HxParam.json";
}

inline QByteArray ReadBytes(const QString& _qstrPath)
{
    QFile file(_qstrPath);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The store's file read on its own, without the library: null when it is missing or does not parse.
inline QJsonObject ReadStoreFile(const QString& _qstrDataPath, bool* _pblParsed)
{
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(ReadBytes(StoreFile(_qstrDataPath)), &parseError);
    *_pblParsed = parseError.error == QJsonParseError::NoError && doc.isObject();
    return doc.object();
}

inline bool WriteBytes(const QString& _qstrPath, const QByteArray& _baBytes)
{
    QFile file(_qstrPath);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(_baBytes) == _baBytes.size();
}

template <typename FunctionPointer>
FunctionPointer StoreFunction(const char* _pName)
{
    return Util::FunctionCast<FunctionPointer>(Param::GetModuleFun(_pName, ""));
}

} // namespace ParamTest
