#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include <QObject>
#include <QString>
#include <QVariantMap>

// Base of every presenter: start-up and shut-down, requests as one-shot pool tasks, an optional
// periodic task, and answers by signal.
class CLS_PresenterBasic : public QObject
{
    Q_OBJECT

public:
    explicit CLS_PresenterBasic(QObject* _pParent = nullptr);
    ~CLS_PresenterBasic() override;

    virtual const char* GetModuleCode();
    virtual void Init();
    virtual void UnInit();
    // An unsolicited message to every listener; its identifier is "__notify__".
    virtual void SendTaskNotify(const QString& _qstrBusinessKey, const QVariantMap& _qmapParam);
    // Non-zero means success.
    virtual int TaskHandler(const QString& _qstrBusinessKey, const QVariantMap& _qmapParam,
                            QVariantMap& _qmapResult) = 0;
    virtual void TaskRequest(const QString& _qstrBusinessKey, const QVariantMap& _qmapParam,
                             const QString& _qstrBusinessUUID, QObject* _pRequestObj);
    virtual void InitData() = 0;
    virtual void UnInitData() = 0;
    virtual void LoopTask();
    // Period of LoopTask in milliseconds; 0 or less runs no periodic task.
    virtual int GetLoopInterval();

    void SetParam(const QVariantMap& _qmapParam);
    QVariantMap GetParam() const;
    void StartLoopTask();
    void TaskRequestHandler(const QString& _qstrBusinessKey, const QVariantMap& _qmapParam,
                            const QString& _qstrBusinessUUID, QObject* _pRequestObj);
    // 1 between Init and UnInit.
    int IsInit() const { return m_iInit.load(std::memory_order_acquire); }

Q_SIGNALS:
    void SignInitEd();
    void SignTaskResult(QString _qstrBusinessKey, QVariantMap _qmapParam, QString _qstrBusinessUUID);

protected:
    // "[<run-time class name>]", the start of every log line of a presenter.
    std::string LogPrefix() const;

private:
    std::string m_strLoopTaskKey;
    std::atomic<int> m_iInit{0};
    QVariantMap m_qmapParam;
    mutable std::mutex m_mutexParam;
};
