#pragma once

#include <QString>

// The progress of a run on standard output: a bar redrawn in place on a terminal, one line per change
// otherwise (pipes, logs, tests).
class CLS_ProgressBar
{
public:
    CLS_ProgressBar();
    // Ends the bar's line if it is still open.
    ~CLS_ProgressBar();

    CLS_ProgressBar(const CLS_ProgressBar&) = delete;
    CLS_ProgressBar& operator=(const CLS_ProgressBar&) = delete;

    void Update(int _iRate, const QString& _qstrText);
    // Leaves the bar's line, so that what follows starts on a line of its own.
    void Finish();

    // "[#########           ]  45% text"
    static QString Render(int _iRate, const QString& _qstrText, int _iWidth);

private:
    const bool m_blTerminal;
    bool m_blLineOpen = false;
    int m_iLastRate = -1;
    QString m_qstrLastText;
};
