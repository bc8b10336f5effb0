#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>

#include <QApplication>
#include <QFileDialog>
#include <QMessageBox>
#include <QPointer>
#include <QTimer>
#include <QUuid>

#include "../framework/TestSupport.h"
#include "CLS_PresenterBasic.h"
#include "CLS_ViewBasic.h"

struct STRUCT_SentRequest
{
    QString qstrKey;
    QVariantMap qmapParam;
    QString qstrUUID;
    QObject* pRequestObj = nullptr;
};

// Records every request and, unless told otherwise, queues it on the pool like any presenter. Its handler
// answers "fail" with failure and anything else with "echo" = "value".
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
        const QList<STRUCT_SentRequest> lstRequests = Requests();
        return static_cast<int>(
            std::count_if(lstRequests.begin(), lstRequests.end(),
                          [&](const STRUCT_SentRequest& _request) { return _request.qstrKey == _qstrKey; }));
    }

    std::atomic<bool> m_blForward{true};

private:
    mutable std::mutex m_mutex;
    QList<STRUCT_SentRequest> m_lstRequests;
};

// A module view bound to a test presenter instead of the module's singleton.
template <typename T>
class CLS_Bound : public T
{
public:
    explicit CLS_Bound(CLS_PresenterBasic* _pPresenter) : m_pPresenter(_pPresenter) {}
    CLS_PresenterBasic* GetPresenter() override { return m_pPresenter; }

private:
    CLS_PresenterBasic* m_pPresenter;
};

// The presenter's answer to a request of the view.
inline void Answer(CLS_PresenterBasic& _presenter, QWidget* _pView, const QString& _qstrKey,
                   QVariantMap _qmapResult)
{
    _qmapResult.insert("__object__", QVariant::fromValue(static_cast<void*>(_pView)));
    Q_EMIT _presenter.SignTaskResult(_qstrKey, _qmapResult, QUuid::createUuid().toString());
}

// Records and closes every modal dialog that opens while it lives, so that none blocks a test; a folder
// dialog is first handed to m_onFileDialog, if set.
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
    std::function<void(QFileDialog*)> m_onFileDialog;

private:
    void Poll()
    {
        QWidget* pModal = QApplication::activeModalWidget();
        if (auto* pBox = qobject_cast<QMessageBox*>(pModal)) {
            m_lstBoxes.append({pBox->windowTitle(), pBox->text(), pBox->standardButtons()});
            pBox->reject();
        } else if (auto* pDialog = qobject_cast<QFileDialog*>(pModal)) {
            // A dialog still open after the test acted on it is closed: the test then fails, not hangs.
            if (m_lstHandled.contains(pDialog) || !m_onFileDialog) {
                pDialog->reject();
            } else {
                m_lstHandled.append(pDialog);
                m_onFileDialog(pDialog);
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
