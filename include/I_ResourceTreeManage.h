#pragma once

#include <QMap>
#include <QObject>
#include <QString>
#include <QVariant>
#include <QVariantList>

#include "SharedRecords.h"

// The host's manager of the device resource tree.
class I_ResourceTreeManage : public QObject
{
    Q_OBJECT

public:
    explicit I_ResourceTreeManage(QObject* _pParent = nullptr) : QObject(_pParent) {}

Q_SIGNALS:
    void SignDataError();
    void SignInitFinished(int _iHostType);
    void SignAddHostPreprocess(int _iHostType, QVariant _qvarHosts);
    void SignAddResourceTreeData(int _iHostType, QVariant _qvarAddItemIds, QVariant _qvarAddInfo);
    void SignDeleteResourceTreeData(int _iHostType, QVariant _qvarItemInfoList);
    void SignModifyResourceTreeData(int _iHostType, QVariant _qvarItemInfoList);
    void SignAddHostFinished(int _iHostType, QVariant _qvarListHostIds);
    void SignDelDevices(QVariantList _qvarListDevQueue);
    void SignDevicesOnlineChange(QMap<QString, Struct_DeviceOnline> _qmapDevOnline);
};
