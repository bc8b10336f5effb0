#include <algorithm>
#include <utility>

#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include "CLS_DBDao.h"
#include "DaoTestSupport.h"

namespace {

const QString kDbName = "Items";
constexpr int kItemCount = 1000;
const QString kOddColumn = "s_odd\"col"; // a column name holding a quotation mark

using EqualList = QVector<QPair<QString, QVariant>>;

// Sort keys written as "column+" or "column-".
QVector<Common::CLS_SortInfo> ParseSort(const QStringList& _lstSort)
{
    QVector<Common::CLS_SortInfo> vecSort;
    for (const QString& qstrKey : _lstSort) {
        vecSort.append({qstrKey.chopped(1), qstrKey.endsWith('+')});
    }
    return vecSort;
}

// Qt's SQLite driver drops quotation marks from the column names it reports.
QString RowKey(const QString& _qstrColumn)
{
    return QString(_qstrColumn).remove('"');
}

QList<qint64> Ids(const DbRows& _vecRows)
{
    QList<qint64> lstIds;
    for (const QVariantMap& mapRow : _vecRows) {
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
    void select_data();
    void select();
    void sqlErrorsCarryDriverMessage_data();
    void sqlErrorsCarryDriverMessage();
    void oneManagerPerDatabaseFile();
    void unsupportedDatabaseType();
    void executeCountsChangedRowsAndRollsBack();

private:
    // The test's own copy of the rows that match every (column, value), in the order of the sort keys.
    DbRows Expected(const EqualList& _vecEqual, const QStringList& _lstSort) const;

    QTemporaryDir m_dir;
    CLS_DbManagerBase* m_pManager = nullptr;
    DbRows m_vecItems;
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
                 ->Execute("CREATE TABLE tab_items (i_id INTEGER PRIMARY KEY, s_color TEXT, i_size INTEGER, "
                           "s_name TEXT, \"s_odd\"\"col\" TEXT)",
                           {})
                 .iCode,
             0);
    const QStringList lstColors{"red", "green", "blue", "o'range", "grey \"dark\""};
    QRandomGenerator generator(20240131);
    QCOMPARE(m_pManager->BeginTransaction().iCode, 0);
    for (int i = 0; i < kItemCount; ++i) {
        const QVariantMap mapItem{{"i_id", qint64(1000 + i * 3)},
                                  {"s_color", lstColors.at(generator.bounded(lstColors.size()))},
                                  {"i_size", qint64(generator.bounded(8))},
                                  {"s_name", QString("item-%1").arg(i)},
                                  {RowKey(kOddColumn), i % 3 == 0 ? "x" : "y"}};
        const auto result = m_pManager->Execute("INSERT INTO tab_items VALUES (?, ?, ?, ?, ?)",
                                                {mapItem["i_id"], mapItem["s_color"], mapItem["i_size"],
                                                 mapItem["s_name"], mapItem[RowKey(kOddColumn)]});
        QVERIFY2(result.iCode == 1, qPrintable(result.qstrMessage));
        m_vecItems << mapItem;
    }
    QCOMPARE(m_pManager->CommitTransaction().iCode, 0);
    QVERIFY(QFileInfo::exists(m_dir.path() + "/Db/Items.db"));
}

DbRows tst_DbManager::Expected(const EqualList& _vecEqual, const QStringList& _lstSort) const
{
    DbRows vecRows;
    std::copy_if(
        m_vecItems.begin(), m_vecItems.end(), std::back_inserter(vecRows), [&](const QVariantMap& _mapRow) {
            return std::all_of(
                _vecEqual.begin(), _vecEqual.end(), [&](const QPair<QString, QVariant>& _equal) {
                    return _mapRow.value(RowKey(_equal.first)).toString() == _equal.second.toString();
                });
        });
    const QVector<Common::CLS_SortInfo> vecSort = ParseSort(_lstSort);
    std::sort(vecRows.begin(), vecRows.end(), [&](const QVariantMap& _a, const QVariantMap& _b) {
        for (const Common::CLS_SortInfo& sort : vecSort) {
            // Every id has four digits and every size one, so their texts sort as their numbers.
            const int iCmp = QString::compare(_a.value(RowKey(sort.qstrColumn)).toString(),
                                              _b.value(RowKey(sort.qstrColumn)).toString());
            if (iCmp != 0) {
                return sort.blAscending ? iCmp < 0 : iCmp > 0;
            }
        }
        return false;
    });
    return vecRows;
}

// Filters, paging and sorting against the test's own copy of the rows. An expected count of -1 asks for
// some rows, whatever their number.
void tst_DbManager::select_data()
{
    QTest::addColumn<QVariantList>("equal"); // column, value, column, value, ...
    QTest::addColumn<QStringList>("sort");
    QTest::addColumn<int>("pageIndex");
    QTest::addColumn<int>("pageSize");
    QTest::addColumn<bool>("allRows");
    QTest::addColumn<int>("expectedCount");
    const auto filtered = [](const char* _pName, const QVariantList& _lstEqual, int _iCount) {
        QTest::newRow(_pName) << _lstEqual << QStringList{"i_id+"} << -1 << -1 << true << _iCount;
    };
    filtered("value with an apostrophe", {"s_color", "o'range", "i_size", 0}, -1);
    filtered("value with quotation marks", {"s_color", "grey \"dark\"", "i_size", 7}, -1);
    filtered("column name with a quotation mark", {kOddColumn, "x", "s_color", "blue"}, -1);
    filtered("same column twice, different values", {"s_color", "red", "s_color", "blue"}, 0);
    filtered("injection attempt stays a value", {"s_color", "red' OR '1'='1", "i_size", 2}, 0);
    const QStringList lstSizeDown{"i_size-", "i_id+"};
    const QStringList lstColorUp{"s_color+", "i_id-"};
    QTest::newRow("third page") << QVariantList() << lstSizeDown << 2 << 25 << false << 25;
    QTest::newRow("last, partial page") << QVariantList() << lstSizeDown << 33 << 30 << false << 10;
    QTest::newRow("page past the end") << QVariantList() << lstSizeDown << 34 << 30 << false << 0;
    QTest::newRow("all-rows flag wins over the page")
        << QVariantList() << lstColorUp << 1 << 25 << true << kItemCount;
    QTest::newRow("no page size means all rows")
        << QVariantList() << lstColorUp << 0 << -1 << false << kItemCount;
    QTest::newRow("filtered second page")
        << QVariantList{"s_color", "red"} << lstColorUp << 1 << 20 << false << 20;
    QTest::newRow("sort by a quoted column name")
        << QVariantList() << QStringList{kOddColumn + "-", "i_id+"} << 0 << 400 << false << 400;
}

void tst_DbManager::select()
{
    QFETCH(QVariantList, equal);
    QFETCH(QStringList, sort);
    QFETCH(int, pageIndex);
    QFETCH(int, pageSize);
    QFETCH(bool, allRows);
    QFETCH(int, expectedCount);
    CLS_SqlFilter filter;
    EqualList vecEqual;
    for (int i = 0; i + 1 < equal.size(); i += 2) {
        filter.Equal(equal.at(i).toString(), equal.at(i + 1));
        vecEqual.append({equal.at(i).toString(), equal.at(i + 1)});
    }
    DbRows vecExpected = Expected(vecEqual, sort);
    if (!allRows && pageSize > 0) {
        vecExpected = vecExpected.mid(pageIndex * pageSize, pageSize);
    }
    if (expectedCount < 0) {
        QVERIFY(!vecExpected.isEmpty());
    } else {
        QCOMPARE(vecExpected.size(), expectedCount);
    }

    CLS_DBDao dao(kDbName, DB_TYPE_SQLITE);
    DbRows vecRows;
    const auto result = dao.Select(vecRows, "tab_items", filter,
                                   Common::CLS_Page(pageIndex, pageSize, -1, allRows), ParseSort(sort));
    QVERIFY2(result.iCode == 0, qPrintable(result.qstrMessage));
    QCOMPARE(Ids(vecRows), Ids(vecExpected));
    // Whole rows: every column, under its name, with its type.
    QVERIFY(vecRows == vecExpected);
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
    DbRows vecRows{{{"stale", 1}}};
    const auto result =
        dao.Select(vecRows, table, filter, Common::CLS_Page(),
                   ParseSort(sortColumn.isEmpty() ? QStringList() : QStringList{sortColumn + "+"}));
    QCOMPARE(result.iCode, -2);
    QVERIFY2(result.qstrMessage.contains(driverText), qPrintable(result.qstrMessage));
    QVERIFY(vecRows.isEmpty());
}

void tst_DbManager::oneManagerPerDatabaseFile()
{
    auto pCreate = DaoTest::CreateDbManagerFunction();
    QCOMPARE(pCreate(kDbName, DB_TYPE_SQLITE), m_pManager);
    CLS_DbManagerBase* pOther = pCreate("Other", DB_TYPE_SQLITE);
    QVERIFY(pOther != nullptr && pOther != m_pManager);
    QVERIFY(pCreate("", DB_TYPE_SQLITE) == nullptr);
    QVERIFY(pCreate("../Escape", DB_TYPE_SQLITE) == nullptr);
    QVERIFY(pCreate(kDbName, 2) == nullptr);
    QVERIFY(pCreate(kDbName, 0) == nullptr);

    QTemporaryDir otherData;
    QVERIFY(otherData.isValid());
    qputenv("HX_DATA_PATH", otherData.path().toUtf8());
    CLS_DbManagerBase* pMoved = pCreate(kDbName, DB_TYPE_SQLITE);
    qputenv("HX_DATA_PATH", m_dir.path().toUtf8());
    QVERIFY(pMoved != nullptr && pMoved != m_pManager);
    QVERIFY(QFileInfo(otherData.path() + "/Db").isDir());

    // Each manager stays on its own file whatever the data folder is now.
    DbRows vecRows;
    QCOMPARE(pMoved->Select(vecRows, "tab_items", CLS_SqlFilter(), Common::CLS_Page(), {}).iCode, -2);
    QCOMPARE(m_pManager->Select(vecRows, "tab_items", CLS_SqlFilter(), Common::CLS_Page(), {}).iCode, 0);
    QCOMPARE(vecRows.size(), kItemCount);
}

void tst_DbManager::unsupportedDatabaseType()
{
    CLS_DBDao dao(kDbName, static_cast<n_DBType>(2));
    QVERIFY(DaoTest::LogText().contains("_iDbType:[2] not implemented"));
    DbRows vecRows;
    const auto result = dao.Select(vecRows, "tab_items", CLS_SqlFilter(), Common::CLS_Page(), {});
    QCOMPARE(result.iCode, -1);
    QCOMPARE(result.qstrMessage, QString("CLS_DBDao::Select m_pDbManagerBase == nullptr"));
    QVERIFY(vecRows.isEmpty());
}

void tst_DbManager::executeCountsChangedRowsAndRollsBack()
{
    const QString qstrTable = "tab \"quoted\" counts";
    const auto Execute = [this](const QString& _qstrSql, const QVariantList& _lstBinds = {}) {
        return m_pManager->Execute(_qstrSql.arg("\"tab \"\"quoted\"\" counts\""), _lstBinds).iCode;
    };
    QCOMPARE(Execute("CREATE TABLE %1 (k TEXT, n INTEGER)"), 0);
    QCOMPARE(Execute("INSERT INTO %1 VALUES ('a', 1), ('b', 2), ('a', 3)"), 3);
    QCOMPARE(Execute("UPDATE %1 SET n = n + 10 WHERE k = ?", {"a"}), 2);
    QCOMPARE(m_pManager->BeginTransaction().iCode, 0);
    QCOMPARE(Execute("INSERT INTO %1 VALUES ('a', 99)"), 1);
    QCOMPARE(m_pManager->RollbackTransaction().iCode, 0);
    auto result = m_pManager->Execute("INSERT INTO tab_items VALUE ('c')", {});
    QCOMPARE(result.iCode, -2);
    QVERIFY2(result.qstrMessage.contains("syntax error"), qPrintable(result.qstrMessage));
    result = m_pManager->RollbackTransaction(); // none under way
    QVERIFY(result.iCode < 0 && !result.qstrMessage.isEmpty());

    // The dao reaches the table by its plain name.
    CLS_DBDao dao(kDbName, DB_TYPE_SQLITE);
    DbRows vecRows;
    result = dao.Select(vecRows, qstrTable, CLS_SqlFilter().Equal("k", "a"), Common::CLS_Page(),
                        ParseSort({"n+"}));
    QCOMPARE(result.iCode, 0);
    QCOMPARE(vecRows, (DbRows{{{"k", "a"}, {"n", 11}}, {{"k", "a"}, {"n", 13}}}));
}

QTEST_GUILESS_MAIN(tst_DbManager)
#include "tst_DbManager.moc"
