#include "CLS_CommonViewBase.h"

#include <QFile>

CLS_CommonViewBase::CLS_CommonViewBase(QWidget* _pParent) : QDialog(_pParent) {}

CLS_CommonViewBase::~CLS_CommonViewBase() = default;

bool CLS_CommonViewBase::LoadStyle(const QString& _qstrStyleFile)
{
    QFile file(_qstrStyleFile);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        return false;
    }
    setStyleSheet(QString::fromUtf8(file.readAll()));
    return true;
}
