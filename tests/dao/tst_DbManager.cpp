#include <algorithm>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <QDir>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>
#include <QtTest>

#include "CLS_DBDao.h"
#include "DaoTestSupport.h"

namespace {

constexpr const char* kDbName = "Items";
constexpr int kItemCount = 1000;
const char* const kOddColumn = "s_odd\"col"; // a column name holding a quotation mark

struct STRUCT_Item
{
    qint64 iId;
    QString qstrColor;
    qint64 iSize;
    QString qstrName;
    QString qstrOdd;

    QVariant Value(const QString& _qstrColumn) const
    {
        if (_qstrColumn == "i_id") {
            return iId;
        }
        if (_qstrColumn == "s_color") {
            return qstrColor;
        }
        if (_qstrColumn == "i_size") {
            return iSize;
        }
        if (_qstrColumn == "s_name") {
            return qstrName;
        }
        return qstrOdd;
    }
};

// Sort keys written as "column+" or "column-".
QVector<Common::CLS_SortInfo> ParseSort(const QStringList& _lstSort)
{
    QVector<Common::CLS_SortInfo> vecSort;
    for (const QString& qstrKey : _lstSort) {
        Common::CLS_SortInfo sort;
        sort.qstrColumn = qstrKey.chopped(1);
        sort.blAscending = qstrKey.endsWith('+');
        vecSort << sort;
    }
    return vecSort;
}

bool ItemLess(const STRUCT_Item& _a, const STRUCT_Item& _b, const QVector<Common::CLS_SortInfo>& _vecSort)
{
    for (const Common::CLS_SortInfo& sort : _vecSort) {
        const QVariant qvarA = _a.Value(sort.qstrColumn);
        const QVariant qvarB = _b.Value(sort.qstrColumn);
        const int iCmp =
            qvarA.type() == QVariant::String
                ? QString::compare(qvarA.toString(), qvarB.toString())
                : (qvarA.toLongLong() > qvarB.toLongLong()) - (qvarA.toLongLong() < qvarB.toLongLong());
        if (iCmp != 0) {
            return sort.blAscending ? iCmp < 0 : iCmp > 0;
        }
    }
    return false;
}

QList<qint64> Ids(const DbRows& _vecRows)
{
    QList<qint64> lstIds;
    for (const auto& mapRow : _vecRows) {
        lstIds << mapRow.value("i_id").toLongLong();
    }
    return lstIds;
}

} // namespace

class tst_DbManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void selectWithTwoEqualFilters_data();
    void selectWithTwoEqualFilters();
    void pagingAndSorting_data();
    void pagingAndSorting();
    void quotedTableName();
    void sqlErrorsCarryDriverMessage_data();
    void sqlErrorsCarryDriverMessage();
    void unsupportedDatabaseType();
    void oneManagerPerDatabaseFile();
    void executeCountsChangedRows();
    void transactions();
    void selectsFromSeveralThreads();

private:
    QSet<qint64> Matching(const QString& _qstrColumn1, const QVariant& _qvar1, const QString& _qstrColumn2,
                          const QVariant& _qvar2) const;

    QTemporaryDir m_dir;
    CLS_DbManagerBase* m_pManager = nullptr;
    QVector<STRUCT_Item> m_vecItems;
};

void tst_DbManager::initTestCase()
{
    QVERIFY(m_dir.isValid());
    qputenv("HX_DATA_PATH", m_dir.path().toUtf8());
    auto pCreate = DaoTest::CreateDbManagerFunction();
    QVERIFY2(pCreate != nullptr, "libHxDao or its CreateDbManager is missing");
    m_pManager = pCreate(kDbName, DB_TYPE_SQLITE);
    QVERIFY(m_pManager != nullptr);

    QCOMPARE(m_pManager
                 ->Execute(QString("CREATE TABLE tab_items (i_id INTEGER PRIMARY KEY, s_color TEXT, "
                                   "i_size INTEGER, s_name TEXT, \"s_odd\"\"col\" TEXT)"),
                           {})
                 .iCode,
             0);
    const QStringList lstColors{"red", "green", "blue", "o'range", "grey \"dark\""};
    QRandomGenerator generator(20240131);
    QCOMPARE(m_pManager->BeginTransaction().iCode, 0);
    for (int i = 0; i < kItemCount; ++i) {
        STRUCT_Item stItem{1000 + i * 3, lstColors.at(generator.bounded(lstColors.size())),
                           generator.bounded(8), QString("item-%1").arg(i), i % 3 == 0 ? "x" : "y"};
        const auto result = m_pManager->Execute(
            "INSERT INTO tab_items VALUES (?, ?, ?, ?, ?)",
            {stItem.iId, stItem.qstrColor, stItem.iSize, stItem.qstrName, stItem.qstrOdd});
        QVERIFY2(result.iCode == 1, qPrintable(result.qstrMessage));
        m_vecItems << stItem;
    }
    QCOMPARE(m_pManager->CommitTransaction().iCode, 0);
    QVERIFY(QFileInfo::exists(m_dir.path() + "/Db/Items.db"));
}

QSet<qint64> tst_DbManager::Matching(const QString& _qstrColumn1, const QVariant& _qvar1,
                                     const QString& _qstrColumn2, const QVariant& _qvar2) const
{
    QSet<qint64> setIds;
    for (const STRUCT_Item& stItem : m_vecItems) {
        if (stItem.Value(_qstrColumn1).toString() == _qvar1.toString() &&
            stItem.Value(_qstrColumn2).toString() == _qvar2.toString()) {
            setIds.insert(stItem.iId);
        }
    }
    return setIds;
}

void tst_DbManager::selectWithTwoEqualFilters_data()
{
    QTest::addColumn<QString>("column1");
    QTest::addColumn<QVariant>("value1");
    QTest::addColumn<QString>("column2");
    QTest::addColumn<QVariant>("value2");
    QTest::addColumn<bool>("expectRows");
    QTest::newRow("color and size") << "s_color" << QVariant("red") << "i_size" << QVariant(3) << true;
    QTest::newRow("value with an apostrophe")
        << "s_color" << QVariant("o'range") << "i_size" << QVariant(0) << true;
    QTest::newRow("value with quotation marks")
        << "s_color" << QVariant("grey \"dark\"") << "i_size" << QVariant(7) << true;
    QTest::newRow("column name with a quotation mark")
        << kOddColumn << QVariant("x") << "s_color" << QVariant("blue") << true;
    QTest::newRow("same column twice, different values")
        << "s_color" << QVariant("red") << "s_color" << QVariant("blue") << false;
    QTest::newRow("value that matches nothing")
        << "s_color" << QVariant("purple") << "i_size" << QVariant(1) << false;
    QTest::newRow("injection attempt stays a value")
        << "s_color" << QVariant("red' OR '1'='1") << "i_size" << QVariant(2) << false;
}

void tst_DbManager::selectWithTwoEqualFilters()
{
    QFETCH(QString, column1);
    QFETCH(QVariant, value1);
    QFETCH(QString, column2);
    QFETCH(QVariant, value2);
    QFETCH(bool, expectRows);

    const QSet<qint64> setExpected = Matching(column1, value1, column2, value2);
    QCOMPARE(!setExpected.isEmpty(), expectRows);

    CLS_DBDao dao(kDbName, DB_TYPE_SQLITE);
    CLS_SqlFilter filter;
    filter.Equal(column1, value1).Equal(column2, value2);
    DbRows vecRows;
    const auto result = dao.Select(vecRows, "tab_items", filter, Common::CLS_Page(-1, -1, -1, true), {});
    QVERIFY2(result.iCode == 0, qPrintable(result.qstrMessage));

    const QList<qint64> lstIds = Ids(vecRows);
    QCOMPARE(QSet<qint64>(lstIds.begin(), lstIds.end()), setExpected);
    QCOMPARE(lstIds.size(), setExpected.size());
    for (const auto& mapRow : vecRows) {
        QCOMPARE(mapRow.keys().size(), 5);
        // Qt's SQLite driver drops quotation marks from the column names it reports.
        QCOMPARE(mapRow.value(QString(column1).remove('"')).toString(), value1.toString());
        QCOMPARE(mapRow.value(QString(column2).remove('"')).toString(), value2.toString());
        QVERIFY(mapRow.value("s_name").toString().startsWith("item-"));
    }
}

void tst_DbManager::pagingAndSorting_data()
{
    QTest::addColumn<QStringList>("sort");
    QTest::addColumn<QString>("color"); // empty: no filter
    QTest::addColumn<int>("pageIndex");
    QTest::addColumn<int>("pageSize");
    QTest::addColumn<bool>("allRows");
    QTest::addColumn<int>("expectedCount");

    const QStringList lstSizeDown{"i_size-", "i_id+"};
    const QStringList lstColorUp{"s_color+", "i_id-"};
    QTest::newRow("first page") << lstSizeDown << QString() << 0 << 25 << false << 25;
    QTest::newRow("third page") << lstSizeDown << QString() << 2 << 25 << false << 25;
    QTest::newRow("last, partial page") << lstSizeDown << QString() << 33 << 30 << false << 10;
    QTest::newRow("page past the end") << lstSizeDown << QString() << 34 << 30 << false << 0;
    QTest::newRow("all-rows flag wins over the page")
        << lstColorUp << QString() << 1 << 25 << true << kItemCount;
    QTest::newRow("no page size means all rows") << lstColorUp << QString() << 0 << -1 << false << kItemCount;
    QTest::newRow("filtered second page") << lstColorUp << "red" << 1 << 20 << false << 20;
    QTest::newRow("sort by a quoted column name")
        << QStringList{QString(kOddColumn) + "-", "i_id+"} << QString() << 0 << 400 << false << 400;
}

void tst_DbManager::pagingAndSorting()
{
    QFETCH(QStringList, sort);
    QFETCH(QString, color);
    QFETCH(int, pageIndex);
    QFETCH(int, pageSize);
    QFETCH(bool, allRows);
    QFETCH(int, expectedCount);

    const QVector<Common::CLS_SortInfo> vecSort = ParseSort(sort);
    QVector<STRUCT_Item> vecExpected;
    std::copy_if(m_vecItems.begin(), m_vecItems.end(), std::back_inserter(vecExpected),
                 [&](const STRUCT_Item& _stItem) { return color.isEmpty() || _stItem.qstrColor == color; });
    std::sort(vecExpected.begin(), vecExpected.end(),
              [&](const STRUCT_Item& _a, const STRUCT_Item& _b) { return ItemLess(_a, _b, vecSort); });
    if (!allRows && pageSize > 0) {
        vecExpected = vecExpected.mid(pageIndex * pageSize, pageSize);
    }
    QList<qint64> lstExpected;
    for (const STRUCT_Item& stItem : vecExpected) {
        lstExpected << stItem.iId;
    }
    QCOMPARE(lstExpected.size(), expectedCount);

    CLS_DBDao dao(kDbName, DB_TYPE_SQLITE);
    CLS_SqlFilter filter;
    if (!color.isEmpty()) {
        filter.Equal("s_color", color);
    }
    DbRows vecRows;
    const auto result =
        dao.Select(vecRows, "tab_items", filter, Common::CLS_Page(pageIndex, pageSize, -1, allRows), vecSort);
    QVERIFY2(result.iCode == 0, qPrintable(result.qstrMessage));
    QCOMPARE(Ids(vecRows), lstExpected);
}

void tst_DbManager::quotedTableName()
{
    const QString qstrTable = "tab \"quoted\" name";
    QCOMPARE(m_pManager->Execute("CREATE TABLE \"tab \"\"quoted\"\" name\" (v TEXT)", {}).iCode, 0);
    QCOMPARE(m_pManager->Execute("INSERT INTO \"tab \"\"quoted\"\" name\" (v) VALUES ('inside')", {}).iCode,
             1);

    CLS_DBDao dao(kDbName, DB_TYPE_SQLITE);
    DbRows vecRows;
    const auto result = dao.Select(vecRows, qstrTable, CLS_SqlFilter(), Common::CLS_Page(), {});
    QVERIFY2(result.iCode == 0, qPrintable(result.qstrMessage));
    QCOMPARE(vecRows.size(), 1);
    QCOMPARE(vecRows.first().value("v").toString(), QString("inside"));
}

void tst_DbManager::sqlErrorsCarryDriverMessage_data()
{
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("filterColumn");
    QTest::addColumn<QString>("sortColumn");
    QTest::addColumn<QString>("driverText");
    QTest::newRow("missing table") << "tab_config_user_personalnobody" << QString() << QString()
                                   << "no such table";
    QTest::newRow("missing filter column") << "tab_items"
                                           << "s_nothing" << QString() << "no such column";
    QTest::newRow("missing sort column") << "tab_items" << QString() << "s_nothing"
                                         << "no such column";
}

void tst_DbManager::sqlErrorsCarryDriverMessage()
{
    QFETCH(QString, table);
    QFETCH(QString, filterColumn);
    QFETCH(QString, sortColumn);
    QFETCH(QString, driverText);

    CLS_DBDao dao(kDbName, DB_TYPE_SQLITE);
    CLS_SqlFilter filter;
    if (!filterColumn.isEmpty()) {
        filter.Equal(filterColumn, "x");
    }
    const QVector<Common::CLS_SortInfo> vecSort =
        ParseSort(sortColumn.isEmpty() ? QStringList() : QStringList{sortColumn + "+"});
    DbRows vecRows{{{"stale", 1}}};
    const auto result = dao.Select(vecRows, table, filter, Common::CLS_Page(), vecSort);
    QCOMPARE(result.iCode, -2);
    QVERIFY2(result.qstrMessage.contains(driverText), qPrintable(result.qstrMessage));
    QVERIFY(vecRows.isEmpty());
}

void tst_DbManager::unsupportedDatabaseType()
{
    auto pCreate = DaoTest::CreateDbManagerFunction();
    QVERIFY(pCreate(kDbName, 2) == nullptr);
    QVERIFY(pCreate(kDbName, 0) == nullptr);

    CLS_DBDao dao(kDbName, static_cast<n_DBType>(2));
    QVERIFY(DaoTest::LogText().contains("_iDbType:[2] not implemented"));

    DbRows vecRows;
    const auto result = dao.Select(vecRows, "tab_items", CLS_SqlFilter(), Common::CLS_Page(), {});
    QCOMPARE(result.iCode, -1);
    QCOMPARE(result.qstrMessage, QString("CLS_DBDao::Select m_pDbManagerBase == nullptr"));
    QVERIFY(vecRows.isEmpty());
}

void tst_DbManager::oneManagerPerDatabaseFile()
{
    auto pCreate = DaoTest::CreateDbManagerFunction();
    QCOMPARE(pCreate(kDbName, DB_TYPE_SQLITE), m_pManager);
    CLS_DbManagerBase* pOther = pCreate("Other", DB_TYPE_SQLITE);
    QVERIFY(pOther != nullptr);
    QVERIFY(pOther != m_pManager);
    QVERIFY(pCreate("", DB_TYPE_SQLITE) == nullptr);
    QVERIFY(pCreate("../Escape", DB_TYPE_SQLITE) == nullptr);

    QTemporaryDir otherData;
    QVERIFY(otherData.isValid());
    qputenv("HX_DATA_PATH", otherData.path().toUtf8());
    CLS_DbManagerBase* pMoved = pCreate(kDbName, DB_TYPE_SQLITE);
    qputenv("HX_DATA_PATH", m_dir.path().toUtf8());
    QVERIFY(pMoved != nullptr);
    QVERIFY(pMoved != m_pManager);
    QVERIFY(QFileInfo(otherData.path() + "/Db").isDir());

    // Each manager stays on its own file whatever the data folder is now.
    DbRows vecRows;
    QCOMPARE(pMoved->Select(vecRows, "tab_items", CLS_SqlFilter(), Common::CLS_Page(), {}).iCode, -2);
    QCOMPARE(m_pManager->Select(vecRows, "tab_items", CLS_SqlFilter(), Common::CLS_Page(), {}).iCode, 0);
    QCOMPARE(vecRows.size(), kItemCount);
}

void tst_DbManager::executeCountsChangedRows()
{
    QCOMPARE(m_pManager->Execute("CREATE TABLE tab_counts (k TEXT, n INTEGER)", {}).iCode, 0);
    QCOMPARE(m_pManager->Execute("INSERT INTO tab_counts VALUES ('a', 1), ('b', 2), ('a', 3)", {}).iCode, 3);
    QCOMPARE(m_pManager->Execute("UPDATE tab_counts SET n = n + 10 WHERE k = ?", {"a"}).iCode, 2);
    QCOMPARE(m_pManager->Execute("SELECT * FROM tab_counts", {}).iCode, 0);
    QCOMPARE(m_pManager->Execute("DELETE FROM tab_counts WHERE k = ?", {"none"}).iCode, 0);

    const auto result = m_pManager->Execute("INSERT INTO tab_counts VALUE ('c')", {});
    QCOMPARE(result.iCode, -2);
    QVERIFY2(result.qstrMessage.contains("syntax error"), qPrintable(result.qstrMessage));

    DbRows vecRows;
    CLS_SqlFilter filter;
    filter.Equal("k", "a");
    QCOMPARE(m_pManager->Select(vecRows, "tab_counts", filter, Common::CLS_Page(), ParseSort({"n+"})).iCode,
             0);
    QCOMPARE(vecRows.size(), 2);
    QCOMPARE(vecRows.at(0).value("n").toInt(), 11);
    QCOMPARE(vecRows.at(1).value("n").toInt(), 13);
}

void tst_DbManager::transactions()
{
    QCOMPARE(m_pManager->Execute("CREATE TABLE tab_tx (v TEXT)", {}).iCode, 0);
    auto Values = [this]() {
        DbRows vecRows;
        m_pManager->Select(vecRows, "tab_tx", CLS_SqlFilter(), Common::CLS_Page(), ParseSort({"v+"}));
        QStringList lstValues;
        for (const auto& mapRow : vecRows) {
            lstValues << mapRow.value("v").toString();
        }
        return lstValues;
    };

    QCOMPARE(m_pManager->BeginTransaction().iCode, 0);
    QCOMPARE(m_pManager->Execute("INSERT INTO tab_tx VALUES ('dropped')", {}).iCode, 1);
    QCOMPARE(Values(), QStringList{"dropped"});
    QCOMPARE(m_pManager->RollbackTransaction().iCode, 0);
    QCOMPARE(Values(), QStringList());

    QCOMPARE(m_pManager->BeginTransaction().iCode, 0);
    QCOMPARE(m_pManager->Execute("INSERT INTO tab_tx VALUES ('kept')", {}).iCode, 1);
    // Another connection sees nothing before the commit.
    {
        DaoTest::CLS_TestConnection conn(m_dir.path() + "/Db/Items.db");
        QVERIFY(conn.IsOpen());
        QCOMPARE(conn.Column("SELECT COUNT(*) FROM tab_tx").value(0).toInt(), 0);
    }
    QCOMPARE(m_pManager->CommitTransaction().iCode, 0);
    QCOMPARE(Values(), QStringList{"kept"});

    const auto result = m_pManager->RollbackTransaction();
    QVERIFY(result.iCode < 0);
    QVERIFY(!result.qstrMessage.isEmpty());
}

void tst_DbManager::selectsFromSeveralThreads()
{
    struct STRUCT_Case
    {
        QString qstrColor;
        qint64 iSize;
        QSet<qint64> setExpected;
    };
    QVector<STRUCT_Case> vecCases;
    for (const QString& qstrColor : QStringList{"red", "green", "blue", "o'range"}) {
        for (qint64 iSize = 0; iSize < 8; ++iSize) {
            vecCases.append({qstrColor, iSize, Matching("s_color", qstrColor, "i_size", iSize)});
        }
    }

    std::mutex mutex;
    QStringList lstFailures;
    int iSelects = 0;
    std::vector<std::thread> vecThreads;
    for (int t = 0; t < 8; ++t) {
        vecThreads.emplace_back([&, t]() {
            CLS_DBDao dao(kDbName, DB_TYPE_SQLITE);
            for (int i = 0; i < vecCases.size(); ++i) {
                const STRUCT_Case& stCase = vecCases.at((i + t * 5) % vecCases.size());
                CLS_SqlFilter filter;
                filter.Equal("s_color", stCase.qstrColor).Equal("i_size", stCase.iSize);
                DbRows vecRows;
                const auto result = dao.Select(vecRows, "tab_items", filter, Common::CLS_Page(), {});
                const QList<qint64> lstIds = Ids(vecRows);
                std::lock_guard<std::mutex> lock(mutex);
                ++iSelects;
                if (result.iCode != 0 || QSet<qint64>(lstIds.begin(), lstIds.end()) != stCase.setExpected ||
                    lstIds.size() != stCase.setExpected.size()) {
                    lstFailures << QString("thread %1 %2/%3: code %4 %5, %6 rows")
                                       .arg(t)
                                       .arg(stCase.qstrColor)
                                       .arg(stCase.iSize)
                                       .arg(result.iCode)
                                       .arg(result.qstrMessage)
                                       .arg(vecRows.size());
                }
            }
        });
    }
    for (std::thread& thread : vecThreads) {
        thread.join();
    }
    QVERIFY2(lstFailures.isEmpty(), qPrintable(lstFailures.join('\n')));
    QCOMPARE(iSelects, 8 * vecCases.size());
}

QTEST_GUILESS_MAIN(tst_DbManager)
#include "tst_DbManager.moc"
