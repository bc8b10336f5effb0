#pragma once

#include <QObject>
#include <QString>
#include <QVector>

#include "SharedRecords.h"

// The host's mediator between the client database and the views.
class I_DataMediator : public QObject
{
    Q_OBJECT

public:
    explicit I_DataMediator(QObject* _pParent = nullptr) : QObject(_pParent) {}

public Q_SLOTS:
    virtual void slotUpdateZ910HostConfig(QString _qstrUserName, QString _qstrNewPwd) = 0;

Q_SIGNALS:
    void SignPassengerFlowCustomTreeDataChangeCallback(QVector<STRCT_VideoItem*> _itemList,
                                                       OperationType _iCmdType, int _iDevType, void* _param);
    void SignUpdateViewSuccess();
    void SignUpdateP2PSvrLst();
    void SignDBStatuaChange(int _iDBStatus);
    void SignSendCar();
};
