#include "CLS_ProgressBar.h"

#include <algorithm>

#include "ClientOutput.h"

namespace {

constexpr int kBarWidth = 30;

} // namespace

CLS_ProgressBar::CLS_ProgressBar() : m_blTerminal(ClientOutput::OutputIsTerminal()) {}

CLS_ProgressBar::~CLS_ProgressBar()
{
    Finish();
}

void CLS_ProgressBar::Update(int _iRate, const QString& _qstrText)
{
    const int iRate = std::clamp(_iRate, 0, 100);
    if (iRate == m_iLastRate && _qstrText == m_qstrLastText) {
        return;
    }
    m_iLastRate = iRate;
    m_qstrLastText = _qstrText;
    const QString qstrLine = Render(iRate, _qstrText, kBarWidth);
    if (!m_blTerminal) {
        ClientOutput::Print(qstrLine);
        return;
    }
    // Carriage return, the bar, then clear what a longer earlier line left on the right.
    ClientOutput::PrintPart("\r" + qstrLine + "\x1b[K");
    m_blLineOpen = true;
}

void CLS_ProgressBar::Finish()
{
    if (m_blLineOpen) {
        ClientOutput::PrintPart("\n");
        m_blLineOpen = false;
    }
}

QString CLS_ProgressBar::Render(int _iRate, const QString& _qstrText, int _iWidth)
{
    const int iRate = std::clamp(_iRate, 0, 100);
    const int iFilled = iRate * _iWidth / 100;
    return "[" + QString(iFilled, '#') + QString(_iWidth - iFilled, ' ') + "] " +
           QString("%1%").arg(iRate, 3) + (_qstrText.isEmpty() ? QString() : " " + _qstrText);
}
