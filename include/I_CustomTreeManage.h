#pragma once

#include <QObject>
#include <QString>
#include <QVariant>

// The host's manager of the user's favourites tree.
class I_CustomTreeManage : public QObject
{
    Q_OBJECT

public:
    explicit I_CustomTreeManage(QObject* _pParent = nullptr) : QObject(_pParent) {}

Q_SIGNALS:
    void SignDataError();
    void SignInitFinished();
    void SignAddCustomTreeData(QVariant _qvarItems);
    void SignDeleteCustomTreeData(QVariant _qvarItems);
    void SignModifyCustomTreeData(QVariant _qvarItems);
    int SignMoveUpOneRow(QString _qstrSrcId, QString _qstrDesId);
    int SignMoveDownOneRow(QString _qstrSrcId, QString _qstrDesId);
};
