#pragma once

#include <cstdio>
#include <string>

#include <unistd.h>

#include <QTemporaryFile>

// Captures what the process writes to one of its standard streams (by file descriptor) while alive.
class CLS_StreamCapture
{
public:
    explicit CLS_StreamCapture(int _iFd) : m_iFd(_iFd)
    {
        m_file.open();
        std::fflush(nullptr);
        m_iSavedFd = dup(m_iFd);
        dup2(m_file.handle(), m_iFd);
    }

    ~CLS_StreamCapture() { Restore(); }

    // Everything written since construction; stops the capture.
    std::string Text()
    {
        Restore();
        m_file.seek(0);
        return m_file.readAll().toStdString();
    }

private:
    void Restore()
    {
        if (m_iSavedFd < 0) {
            return;
        }
        std::fflush(nullptr);
        dup2(m_iSavedFd, m_iFd);
        close(m_iSavedFd);
        m_iSavedFd = -1;
    }

    QTemporaryFile m_file;
    int m_iFd;
    int m_iSavedFd = -1;
};
