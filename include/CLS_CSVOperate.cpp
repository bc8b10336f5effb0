#include "CLS_CSVOperate.h"

#include <QFileInfo>
#include <QMessageLogger>
#include <QStringList>
#include <QTextCodec>
#include <QTextStream>

namespace {

// The host's log tools key on these line numbers, so they stay fixed whatever the layout of this file.
constexpr int c_iWriteRefusedLine = 46;
constexpr int c_iCharSetUnknownLine = 171;

const QChar c_qcQuote = QLatin1Char('"');
const QChar c_qcSeparator = QLatin1Char(',');
const QChar c_qcLineEnd = QLatin1Char('\n');
const QString c_qstrDoubleQuote = QStringLiteral("\"\"");
const QString c_qstrQuotedNext = QStringLiteral("\",");
const QString c_qstrQuotedLast = QStringLiteral("\"\n");

enum class n_CharSet
{
    Unknown,
    Utf8WithMark,
    Utf8,
    Gbk
};

QString DoubleQuotes(QString _qstrField)
{
    return _qstrField.replace(c_qcQuote, c_qstrDoubleQuote);
}

bool RoundTrips(const char* _pcharCodec, const QByteArray& _baContent)
{
    const QTextCodec* pCodec = QTextCodec::codecForName(_pcharCodec);
    return pCodec && pCodec->fromUnicode(pCodec->toUnicode(_baContent)) == _baContent;
}

n_CharSet DetectCharSet(const QByteArray& _baContent, const QByteArray& _baHead)
{
    if (_baHead.size() == 3 && _baHead == QByteArray("\xEF\xBB\xBF")) {
        return n_CharSet::Utf8WithMark;
    }
    if (RoundTrips("UTF-8", _baContent)) {
        return n_CharSet::Utf8;
    }
    if (RoundTrips("GBK", _baContent)) {
        return n_CharSet::Gbk;
    }
    return n_CharSet::Unknown;
}

QString Unquote(QString _qstrField)
{
    if (_qstrField.startsWith(c_qcQuote)) {
        _qstrField.remove(0, 1);
    }
    if (_qstrField.endsWith(c_qcQuote)) {
        _qstrField.chop(1);
    }
    return _qstrField.replace(c_qstrDoubleQuote, QString(c_qcQuote));
}

// A field that holds a comma was split into several pieces; an odd number of quotation marks in a piece
// opens or closes such a field.
QList<QString> ParseLine(const QString& _qstrLine)
{
    const QStringList lstPieces = _qstrLine.split(c_qcSeparator, Qt::KeepEmptyParts, Qt::CaseSensitive);
    QList<QString> lstFields;
    QString qstrField;
    bool blInQuotes = false;
    for (const QString& qstrPiece : lstPieces) {
        const bool blOddQuotes = qstrPiece.count(c_qcQuote) % 2 != 0;
        if (!blInQuotes) {
            qstrField = qstrPiece;
            if (blOddQuotes) {
                blInQuotes = true;
                continue;
            }
        } else {
            qstrField += c_qcSeparator + qstrPiece;
            if (!blOddQuotes) {
                continue;
            }
        }
        lstFields.append(Unquote(qstrField));
        blInQuotes = false;
    }
    // A quoted field left open at the end of its line still keeps its text.
    if (blInQuotes) {
        lstFields.append(Unquote(qstrField));
    }
    return lstFields;
}

} // namespace

CLS_CSVOperate* CLS_CSVOperate::ms_pInstance = nullptr;

CLS_CSVOperate::CLS_CSVOperate(const QString& _qstrFileName) : QFile(_qstrFileName) {}

CLS_CSVOperate* CLS_CSVOperate::GetInstance()
{
    if (!ms_pInstance) {
        ms_pInstance = new CLS_CSVOperate;
    }
    return ms_pInstance;
}

bool CLS_CSVOperate::OpenCSVFile(const QString& _qstrPath)
{
    if (_qstrPath.isEmpty()) {
        return false;
    }
    if (isOpen()) {
        close();
    }
    setFileName(_qstrPath);
    return open(QIODevice::ReadWrite | QIODevice::Text);
}

void CLS_CSVOperate::CloseCSVFile()
{
    close();
}

bool CLS_CSVOperate::CheckCSVFile(const QString& _qstrPath)
{
    const QFileInfo fileInfo(_qstrPath);
    return fileInfo.isFile() && fileInfo.size() > 0;
}

bool CLS_CSVOperate::WriteRecords(const QList<QList<QString>>& _lstRecords)
{
    QString qstrText;
    for (const QList<QString>& lstRow : _lstRecords) {
        for (int i = 0; i < lstRow.size(); ++i) {
            qstrText += c_qcQuote + DoubleQuotes(lstRow.at(i));
            qstrText += i + 1 < lstRow.size() ? c_qstrQuotedNext : c_qstrQuotedLast;
        }
        // A row without fields still takes its line, so the rows after it keep their places.
        if (lstRow.isEmpty()) {
            qstrText += c_qcLineEnd;
        }
    }
    return WriteText(qstrText, nullptr);
}

bool CLS_CSVOperate::WriteRecords(const QList<QList<QString>>& _lstRecords, const char* _pcharCodec)
{
    QTextCodec* pCodec = CodecForWriting(_lstRecords, _pcharCodec, Q_FUNC_INFO);
    if (!pCodec) {
        return false;
    }
    QString qstrText;
    for (const QList<QString>& lstRow : _lstRecords) {
        for (int i = 0; i < lstRow.size(); ++i) {
            const QString& qstrField = lstRow.at(i);
            const bool blLast = i + 1 == lstRow.size();
            if (qstrField.contains(c_qcSeparator)) {
                qstrText += c_qcQuote + DoubleQuotes(qstrField);
                qstrText += blLast ? c_qstrQuotedLast : c_qstrQuotedNext;
            } else {
                qstrText += DoubleQuotes(qstrField);
                qstrText += blLast ? c_qcLineEnd : c_qcSeparator;
            }
        }
        if (lstRow.isEmpty()) {
            qstrText += c_qcLineEnd;
        }
    }
    return WriteText(qstrText, pCodec);
}

bool CLS_CSVOperate::ReadRecords(QList<QList<QString>>& _lstRecords)
{
    if (isOpen()) {
        close();
    }
    if (fileName().isEmpty() || !open(QIODevice::ReadOnly | QIODevice::Text)) {
        return false;
    }
    const QByteArray baContent = readAll();
    seek(0);
    const QByteArray baHead = read(3);
    seek(0);

    const n_CharSet nCharSet = DetectCharSet(baContent, baHead);
    close();
    if (nCharSet == n_CharSet::Unknown) {
        QMessageLogger(__FILE__, c_iCharSetUnknownLine, Q_FUNC_INFO)
            .warning("CLS_CSVOperate:ReadRecords neither UTF8-BOM or GBK or UTF8, return");
        return false;
    }

    // The file stays open for the caller; a file it may not write is still read.
    if (!open(QIODevice::ReadWrite | QIODevice::Text) && !open(QIODevice::ReadOnly | QIODevice::Text)) {
        return false;
    }
    QTextStream stream(this);
    if (nCharSet == n_CharSet::Gbk) {
        stream.setCodec("gbk");
    } else if (nCharSet == n_CharSet::Utf8) {
        stream.setCodec("utf-8");
    }
    while (!stream.atEnd()) {
        // A null line means nothing was left to decode (a file that is only a byte-order mark).
        const QString qstrLine = stream.readLine();
        if (qstrLine.isNull()) {
            break;
        }
        _lstRecords.append(ParseLine(qstrLine));
    }
    return true;
}

bool CLS_CSVOperate::WriteCSVFile(const QString& _qstrPath, const QList<QList<QString>>& _lstRecords,
                                  const char* _pcharCodec)
{
    if (_qstrPath.isEmpty() || !CodecForWriting(_lstRecords, _pcharCodec, Q_FUNC_INFO)) {
        return false;
    }
    CLS_CSVOperate csvFile(_qstrPath);
    if (!csvFile.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text)) {
        return false;
    }
    const bool blWritten = csvFile.WriteRecords(_lstRecords, _pcharCodec);
    csvFile.close();
    return blWritten && csvFile.error() == QFileDevice::NoError;
}

bool CLS_CSVOperate::ReadCSVFile(const QString& _qstrPath, QList<QList<QString>>& _lstRecords)
{
    if (_qstrPath.isEmpty()) {
        return false;
    }
    CLS_CSVOperate csvFile(_qstrPath);
    QList<QList<QString>> lstRecords;
    if (!csvFile.ReadRecords(lstRecords)) {
        return false;
    }
    _lstRecords.swap(lstRecords);
    return true;
}

QTextCodec* CLS_CSVOperate::CodecForWriting(const QList<QList<QString>>& _lstRecords, const char* _pcharCodec,
                                            const char* _pcharFunction)
{
    if (_lstRecords.isEmpty() || !_pcharCodec || *_pcharCodec == '\0') {
        QMessageLogger(__FILE__, c_iWriteRefusedLine, _pcharFunction)
            .warning("CLS_CSVOperate:records is empty or _pcharCodec is empty");
        return nullptr;
    }
    return QTextCodec::codecForName(_pcharCodec);
}

bool CLS_CSVOperate::WriteText(const QString& _qstrText, QTextCodec* _pCodec)
{
    if (!isWritable()) {
        return false;
    }
    QTextStream stream(this);
    stream.setGenerateByteOrderMark(true);
    if (_pCodec) {
        stream.setCodec(_pCodec);
    }
    stream << _qstrText;
    stream.flush();
    return stream.status() == QTextStream::Ok && flush();
}
