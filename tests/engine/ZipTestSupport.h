#pragma once

#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <QStringList>

namespace EngineTest {

// Runs a Python script (Python's zipfile is a writer independent of ours); false when it did not finish well.
inline bool RunPython(const QString& _qstrScript, const QStringList& _lstArguments,
                      QString* _pOutput = nullptr)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start("python3", QStringList{"-c", _qstrScript} + _lstArguments);
    const bool blDone = process.waitForFinished(300000) && process.exitStatus() == QProcess::NormalExit &&
                        process.exitCode() == 0;
    if (_pOutput) {
        *_pOutput = QString::fromUtf8(process.readAll());
    }
    return blDone;
}

inline bool HasPython()
{
    return !QStandardPaths::findExecutable("python3").isEmpty();
}

} // namespace EngineTest
