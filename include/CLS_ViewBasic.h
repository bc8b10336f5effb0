#pragma once

#include <atomic>
#include <string>

#include <QReadWriteLock>
#include <QString>
#include <QVariantMap>
#include <QWidget>

class CLS_PresenterBasic;
class QShowEvent;

// The entry point that a widget library exports as "CreateWgt"; the map chooses and sets up the widget.
using PFN_CreateWgt = QWidget* (*)(QVariantMap& _qmapParam);

// Base of every view: binds to the presenter on first show, sends requests marked with the view, and
// keeps only the answers addressed to itself.
class CLS_ViewBasic : public QWidget
{
    Q_OBJECT

public:
    explicit CLS_ViewBasic(QWidget* _pParent = nullptr);
    ~CLS_ViewBasic() override;

    // The presenter's module code, or the class name while there is no presenter.
    virtual const char* GetModuleCode();
    virtual CLS_PresenterBasic* GetPresenter();
    virtual void InitView() = 0;
    // Runs once per view, possibly off the GUI thread: it only sends requests.
    virtual void InitData() = 0;
    virtual bool TaskHandler(const QString& _qstrKey, const QVariantMap& _qmapParam,
                             QVariantMap& _qmapResult) = 0;
    virtual bool TaskRequestHandler(const QString& _qstrKey, const QVariantMap& _qmapParam,
                                    const QString& _qstrUUID, QVariantMap& _qmapResult);

    // Widgets, style and the connection to the presenter's answers.
    void Init();
    bool IsInitialised() const { return m_blInit.load(std::memory_order_acquire); }
    // How other code drives the view: the view's own handler, logged.
    bool TaskRequest(const QString& _qstrKey, const QVariantMap& _qmapParam, QVariantMap& _qmapResult);
    // Identifier "__DefaultID__", or a fresh GUID when _blUnique.
    void SendPresenterRequest(const QString& _qstrKey, const QVariantMap& _qmapParam, bool _blUnique);
    void SendPresenterRequest(const QString& _qstrKey, const QVariantMap& _qmapParam, QString _qstrUUID);
    // A string literal would silently pick the bool overload.
    void SendPresenterRequest(const QString& _qstrKey, const QVariantMap& _qmapParam,
                              const char* _pUUID) = delete;
    // The class name without its namespaces.
    QString GetClassCode() const;
    QString GetStyleSheetText() const { return m_qstrStyleSheet; }

Q_SIGNALS:
    void SignRequestTaskRsulted(QString _qstrKey, QVariantMap _qmapResult, QString _qstrUUID);

public Q_SLOTS:
    void CallTaskHandler(QString _qstrKey, QVariantMap _qmapParam, QString _qstrUUID);
    void SlotInitData();

protected:
    void showEvent(QShowEvent* _pEvent) override;
    void LoadStyle();
    // Drops this view's queued pool tasks and waits for a running one; a subclass calls it first thing in
    // its destructor, since a task that runs during destruction would call into a half-destroyed view.
    void RemovePendingTasks();

    QReadWriteLock m_rwLock;

private:
    std::atomic<bool> m_blFirstShow{true};
    std::atomic<bool> m_blInit{false};
    QString m_qstrStyleSheet;
};

// A widget made by the widget library of that name in the module folder; null when it cannot be had.
QWidget* GetWgtView(const std::string& _strModuleName, const QVariantMap& _qmapParam);
