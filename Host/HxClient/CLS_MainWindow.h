#pragma once

#include <QMainWindow>
#include <QString>
#include <QVariantMap>

class CLS_ModuleHost;
class QLabel;
class QPushButton;

// The host's window: the module's settings form, and a "Back up now" button that opens the module's
// progress dialog on a backup into the saved folder.
class CLS_MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit CLS_MainWindow(CLS_ModuleHost& _host, QWidget* _pParent = nullptr);

private Q_SLOTS:
    void SlotBackUpNow();
    void SlotAnswer(QString _qstrUuid, QString _qstrKey, QVariantMap _qmapResult);
    // The progress dialog's signal when it closes after a successful run.
    void SlotBackUpClosed(QString _qstrKey, QVariantMap _qmapResult, QString _qstrUuid);

private:
    void OpenProgressDialog(const QString& _qstrFolder);

    CLS_ModuleHost& m_host;
    QPushButton* m_pBackUpButton = nullptr;
    QLabel* m_pStatus = nullptr;
    QString m_qstrSettingsRequest;
};
