#include <memory>

#include <QTemporaryDir>
#include <QtTest>

#include "CLS_BackUpPresenter.h"
#include "CLS_DBDaoC.h"
#include "DaoTestSupport.h"
#include "EngineTestSupport.h"
#include "Param.h"

using namespace EngineTest;

namespace {

using Rows = QList<QStringList>; // s_main_type, s_sub_type, s_value

CLS_BackUpPresenter* Presenter()
{
    return CLS_Singleton<CLS_BackUpPresenter>::GetInstance();
}

QStringList Paths(const QVector<STRUCT_BackUpSource>& _vecSources)
{
    QStringList lstPaths;
    for (const STRUCT_BackUpSource& source : _vecSources) {
        lstPaths << source.path;
    }
    return lstPaths;
}

} // namespace

class tst_BackUpSourceSet : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void configuredFolders_data();
    void configuredFolders();
    void userIdIsPartOfTheTableName();
    void missingTableLeavesTheFixedEntries();

private:
    QString DataPath() const { return m_pDir->path(); }
    // The personal configuration table of a user in the client database, filled with the rows.
    void MakeTable(const QString& _qstrUserId, const Rows& _lstRows);
    QStringList FixedPaths() const
    {
        return {DataPath() + "/Db", DataPath(), DataPath() + "/FacePicture", DataPath() + "/ElectronicMap"};
    }

    std::unique_ptr<QTemporaryDir> m_pDir;
};

void tst_BackUpSourceSet::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    qputenv("HX_DATA_PATH", m_pDir->path().toUtf8());
}

void tst_BackUpSourceSet::cleanup()
{
    CLS_DBDaoC::ClearPools();
    m_pDir.reset();
}

void tst_BackUpSourceSet::MakeTable(const QString& _qstrUserId, const Rows& _lstRows)
{
    QVERIFY(QDir().mkpath(DataPath() + "/Db"));
    DaoTest::CLS_TestConnection connection(DataPath() + "/Db/Orvella.db");
    QVERIFY(connection.IsOpen());
    const QString qstrTable = "tab_config_user_personal" + _qstrUserId;
    QStringList lstSql{"CREATE TABLE " + qstrTable + " (s_main_type TEXT, s_sub_type TEXT, s_value TEXT)"};
    for (const QStringList& lstRow : _lstRows) {
        lstSql << QString("INSERT INTO %1 VALUES ('%2', '%3', '%4')")
                      .arg(qstrTable, lstRow[0], lstRow[1], lstRow[2]);
    }
    QCOMPARE(connection.Exec(lstSql), QString());
}

void tst_BackUpSourceSet::configuredFolders_data()
{
    QTest::addColumn<Rows>("rows");
    QTest::addColumn<QStringList>("added");
    QTest::newRow("empty table") << Rows() << QStringList();
    QTest::newRow("both folders, downloads first whatever the row order")
        << Rows{{"MAINTYPE_SYSCONFIG", "picturePath", "/pics"}, {"MAINTYPE_SYSCONFIG", "downpath", "/down"}}
        << QStringList{"/down", "/pics"};
    QTest::newRow("the first of two rows")
        << Rows{{"MAINTYPE_SYSCONFIG", "downpath", "/first"}, {"MAINTYPE_SYSCONFIG", "downpath", "/second"}}
        << QStringList{"/first"};
    QTest::newRow("an empty value is an entry")
        << Rows{{"MAINTYPE_SYSCONFIG", "picturePath", ""}} << QStringList{""};
    QTest::newRow("other kinds of rows are not read")
        << Rows{{"MAINTYPE_OTHER", "downpath", "/x"}, {"MAINTYPE_SYSCONFIG", "downPath", "/y"}}
        << QStringList();
}

void tst_BackUpSourceSet::configuredFolders()
{
    QFETCH(Rows, rows);
    QFETCH(QStringList, added);
    MakeTable("admin", rows);
    const QVector<STRUCT_BackUpSource> vecSources = Presenter()->GetBackUpSourcePath();
    QCOMPARE(Paths(vecSources), FixedPaths() + added);
    QCOMPARE(vecSources.at(1).filters, (QStringList{"*.json", "*.ini"}));
    for (int i = 0; i < vecSources.size(); ++i) {
        QCOMPARE(vecSources.at(i).filters.isEmpty(), i != 1);
    }
    QCOMPARE(CountLogLines(DataPath(), "Dbdao.Select failed"), 0);
}

void tst_BackUpSourceSet::userIdIsPartOfTheTableName()
{
    MakeTable("admin", {{"MAINTYPE_SYSCONFIG", "downpath", "/admin-down"}});
    MakeTable("u1", {{"MAINTYPE_SYSCONFIG", "downpath", "/u1-down"}});
    QVERIFY(Param::SetParam("SystemConfig", "clientid", "u1", 1) != 0);
    QCOMPARE(Paths(Presenter()->GetBackUpSourcePath()), FixedPaths() + QStringList{"/u1-down"});
}

void tst_BackUpSourceSet::missingTableLeavesTheFixedEntries()
{
    QCOMPARE(Paths(Presenter()->GetBackUpSourcePath()), FixedPaths());
    QCOMPARE(CountLogLines(DataPath(), " GetBackUpSourcePath() Dbdao.Select failed"), 2);
}

QTEST_GUILESS_MAIN(tst_BackUpSourceSet)
#include "tst_BackUpSourceSet.moc"
