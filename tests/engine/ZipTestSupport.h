#pragma once

#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <QStringList>

namespace EngineTest {

// Writes folder argv[1] into archive argv[2] with Python's zipfile: pictures stored, the rest deflated.
inline const char* const kPythonZip = R"(
import os, sys, zipfile
src, out = sys.argv[1], sys.argv[2]
with zipfile.ZipFile(out, "w", allowZip64=True) as z:
    for folder, _, files in sorted(os.walk(src)):
        for name in sorted(files):
            path = os.path.join(folder, name)
            method = zipfile.ZIP_STORED if name.endswith((".jpg", ".mp4")) else zipfile.ZIP_DEFLATED
            z.write(path, os.path.relpath(path, src), compress_type=method, compresslevel=1)
)";

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
