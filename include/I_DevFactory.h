#pragma once

#include <QMap>
#include <QObject>
#include <QString>
#include <QVector>

// The host's factory of device connections.
class I_DevFactory : public QObject
{
    Q_OBJECT

public:
    explicit I_DevFactory(QObject* _pParent = nullptr) : QObject(_pParent) {}

Q_SIGNALS:
    void SignSearchResultsEd(int _iDevType, QVector<QMap<QString, QString>> _qvecDev);
    void SignPlaybackProgressEd(int _iConnId, qulonglong _ullProgress);
    void SignDevResultsEd(QString _qstrDevId, int _iCmd, QMap<QString, QString> _qmapDevInfo,
                          QString _qstrUUid);
    void SignAlarmInfo(QString _qstrDevId, QMap<QString, QString> _qmapDevInfo);
};
