#pragma once

#include <atomic>
#include <functional>
#include <mutex>

#include <QAbstractButton>
#include <QApplication>
#include <QFileDialog>
#include <QList>
#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <QPushButton>
#include <QStringList>
#include <QTimer>

#include "../framework/TestSupport.h"
#include "CLS_PresenterBasic.h"
#include "CLS_ViewBasic.h"

// One request as a view handed it to its presenter.
struct STRUCT_SentRequest
{
    QString qstrKey;
    QVariantMap qmapParam;
    QString qstrUUID;
    QObject* pRequestObj = nullptr;
};

// A presenter that records every request it is handed and, unless told otherwise, queues it on the pool
// like any presenter. Its handler answers "fail" with failure and anything else with "echo" = "value".
class CLS_RecordingPresenter : public CLS_PresenterBasic
{
    Q_OBJECT

public:
    const char* GetModuleCode() override { return "TestModule"; }

    int TaskHandler(const QString& _qstrKey, const QVariantMap& _qmapParam, QVariantMap& _qmapResult) override
    {
        _qmapResult.insert("echo", _qmapParam.value("value"));
        return _qstrKey == "fail" ? 0 : 1;
    }

    void TaskRequest(const QString& _qstrKey, const QVariantMap& _qmapParam, const QString& _qstrUUID,
                     QObject* _pRequestObj) override
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_lstRequests.append({_qstrKey, _qmapParam, _qstrUUID, _pRequestObj});
        }
        if (m_blForward.load()) {
            CLS_PresenterBasic::TaskRequest(_qstrKey, _qmapParam, _qstrUUID, _pRequestObj);
        }
    }

    void InitData() override {}
    void UnInitData() override {}

    QList<STRUCT_SentRequest> Requests() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lstRequests;
    }

    int CountRequests(const QString& _qstrKey) const
    {
        int iCount = 0;
        for (const STRUCT_SentRequest& request : Requests()) {
            iCount += request.qstrKey == _qstrKey ? 1 : 0;
        }
        return iCount;
    }

    std::atomic<bool> m_blForward{true};

private:
    mutable std::mutex m_mutex;
    QList<STRUCT_SentRequest> m_lstRequests;
};

// Closes every modal dialog that opens while it lives, after recording it and letting the test act on it,
// so that a message box or a folder dialog never blocks a test.
class CLS_ModalCatcher : public QObject
{
public:
    struct STRUCT_Box
    {
        QString qstrTitle;
        QString qstrText;
        QMessageBox::StandardButtons buttons;
    };

    CLS_ModalCatcher()
    {
        connect(&m_timer, &QTimer::timeout, this, [this]() { Poll(); });
        m_timer.start(10);
    }

    QList<STRUCT_Box> m_lstBoxes;
    // What to do with a folder dialog; rejected when not set.
    std::function<void(QFileDialog*)> m_onFileDialog;
    int m_iFileDialogs = 0;

private:
    void Poll()
    {
        QWidget* pModal = QApplication::activeModalWidget();
        if (auto* pBox = qobject_cast<QMessageBox*>(pModal)) {
            m_lstBoxes.append({pBox->windowTitle(), pBox->text(), pBox->standardButtons()});
            if (QAbstractButton* pButton = pBox->defaultButton()) {
                pButton->click();
            } else {
                pBox->reject();
            }
        } else if (auto* pDialog = qobject_cast<QFileDialog*>(pModal)) {
            // A dialog that stays open after the test acted on it is closed, so that the test fails, not
            // hangs.
            if (m_lstHandled.contains(pDialog)) {
                pDialog->reject();
                return;
            }
            m_lstHandled.append(pDialog);
            ++m_iFileDialogs;
            if (m_onFileDialog) {
                m_onFileDialog(pDialog);
            } else {
                pDialog->reject();
            }
        }
    }

    QTimer m_timer;
    QList<QPointer<QWidget>> m_lstHandled;
};

// Drops the owner's queued pool tasks and waits for its running ones; how many were still queued.
inline int DrainPoolTasks(QObject* _pOwner)
{
    auto pRemove = PoolFunction<TaskPool::PFN_RemoveTmpTask>("RemoveTmpTask");
    return pRemove != nullptr ? pRemove(_pOwner, "{}") : -1;
}
