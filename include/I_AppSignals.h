#pragma once

#include <QEvent>
#include <QObject>
#include <QString>
#include <QVariantMap>
#include <QVector>

#include "SharedRecords.h"

class QWidget;

// The host application's signal hub.
class I_AppSignals : public QObject
{
    Q_OBJECT

public:
    explicit I_AppSignals(QObject* _pParent = nullptr) : QObject(_pParent) {}

Q_SIGNALS:
    void SignQuit(n_QuitFlag _iQuitFlag, QVariantMap _qmapParam);
    void SignShowUi(QVariantMap _qmapParam);
    int SignCommonData(int _iFlag, QVariantMap _mapData);
    int SignBusinessData(QString _qstrBusinessId, QVariantMap _mapData, QString _qstrUUId);
    void SignResizeView(double _dXScale, double _dYScale);
    void SignDockClick();
    void SignShowBallonTips(QVariantMap _mapData);
    void SignConfigExport(QString _qstrModuleName, QString _qstrExportID, QString _qstrExportDir);
    void SignConfigImport(QString _qstrModuleName, QString _qstrImportID, QString _qstrImportDir);
    void SignConfigExportProgress(QString _qstrMouleName, int _progressValue);
    void SignConfigImportProgress(QString _qstrMouleName, int _progressValue);
    void SignConfigExportFinished(QString _qstrModuleName, QString _qstrResultJsonStr);
    void SignConfigImportFinished(QString _qstrModuleName, QString _qstrResultJsonStr);
    void SignPageFullScreen(QWidget* _pWidget);
    void SignPageUnFullScreen(QWidget* _pWidget);
    void SignSetVideoUpdate(QString _qstrChannelID, void* _pParam, bool _blUpdate, int _iType = 0);
    void SignP2pOperation(int _iOperationFlag, QString _qstrParam);
    void SignAddFavoriteGroup(CLS_CustomTreeNode _node);
    void SignAddFavoriteChannels(QVector<QString> qvecChannelIds);
    void SignModifyFavoriteGroup(CLS_CustomTreeNode _node);
    void SignDeleteFavoriteGroup(QString _qstrGroupId);
    void SignDeleteFavoriteChannel(CLS_CustomTreeNode _node);
    void SignModifyFavoriteChannel(CLS_CustomTreeNode _node);
    void SignAPPMove(QEvent* _pEvent);
    void SignEscPressed();
    void SignDevAbilityUpdated(QString _qstrChannelId, bool _blUpdatePtz);
    void SignDiskSpaceInfo(QVector<STRCT_DiskInfo> _qvecDiskSpaceInfo);
    void SignUpdateDownLoadList(int _iCmd, STRUCT_RemortExportInfo _strctInfo);
    void SignStopExport(int _iIndex, int _iDownloadType);
    void SignReExport(int _iIndex, int _iDownloadType);
    void SignClearRecord(int _iIndex, int _iDownloadType);
    void SignClearAllExport(int _iDownloadType);
    void SignUsbKeyboardStatusChanged(bool _blOnline);
    void SignSetUsbDebugViewVisiable(bool _blVisiable);
    void SignSetFocus(QWidget* _pWidget, bool _blFocus);
    void SignSendRequset(int _iType, QString _qstrModName, QString _qstrJson);
    void SignSoundStateChanged(QVariantMap _qmapParam);
    void SignDebugViewStatueChange(bool _blStatus);
};
