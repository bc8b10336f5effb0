#pragma once

#include <QFile>
#include <QList>
#include <QString>

class QTextCodec;

// Reads and writes tables of text (rows of fields) as CSV files. The object is the file it works on.
// Every file written carries a byte-order mark when its character set has one; reading tells UTF-8 with
// a mark, UTF-8 and GBK apart by itself.
class CLS_CSVOperate : public QFile
{
public:
    CLS_CSVOperate() = default;
    explicit CLS_CSVOperate(const QString& _qstrFileName);

    // The process-wide instance; it has no file name until OpenCSVFile gives it one.
    static CLS_CSVOperate* GetInstance();

    // Opens _qstrPath for reading and writing in text mode, keeping its content, positioned at the start.
    bool OpenCSVFile(const QString& _qstrPath);
    void CloseCSVFile();
    // True when _qstrPath is a file with at least one byte in it.
    static bool CheckCSVFile(const QString& _qstrPath);

    // Writes at the current position with every field quoted, in the default codec. An empty table
    // writes nothing and is no failure.
    bool WriteRecords(const QList<QList<QString>>& _lstRecords);
    // Writes at the current position in the codec named _pcharCodec, quoting only fields that hold a
    // comma. An empty table or no codec is refused with a warning.
    bool WriteRecords(const QList<QList<QString>>& _lstRecords, const char* _pcharCodec);
    // Detects the character set of the file and appends its rows to _lstRecords. Leaves the file open
    // for reading and writing until CloseCSVFile.
    bool ReadRecords(QList<QList<QString>>& _lstRecords);

    // Writes the whole table to _qstrPath, replacing any earlier content, in the codec form.
    // Refused input (empty path or table, unknown codec) leaves an existing file as it was.
    static bool WriteCSVFile(const QString& _qstrPath, const QList<QList<QString>>& _lstRecords,
                             const char* _pcharCodec = "UTF-8");
    // Reads the whole file at _qstrPath into _lstRecords (replacing its content only on success).
    static bool ReadCSVFile(const QString& _qstrPath, QList<QList<QString>>& _lstRecords);

private:
    // The codec to write in, or null when the input is refused; _pcharFunction names the refusing caller.
    static QTextCodec* CodecForWriting(const QList<QList<QString>>& _lstRecords, const char* _pcharCodec,
                                       const char* _pcharFunction);
    bool WriteText(const QString& _qstrText, QTextCodec* _pCodec);

    static CLS_CSVOperate* ms_pInstance;
};
