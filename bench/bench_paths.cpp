#include "foundation/fileutil.h"
#include "foundation/pathvars.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace quirepad;

// Path work on the job road: expanding output patterns, listing the spool
// by glob, and finding a free name in a crowded folder.
class BenchPaths : public QObject
{
    Q_OBJECT

    QTemporaryDir m_spool;

private slots:
    void initTestCase()
    {
        for (int i = 0; i < 1000; ++i) {
            QFile file(m_spool.filePath(QStringLiteral("user-D3F2UG-job %1.pdf").arg(i)));
            QVERIFY(file.open(QIODevice::WriteOnly));
        }
        for (int i = 1; i < 200; ++i) {
            QFile file(m_spool.filePath(QStringLiteral("report %1.pdf").arg(i)));
            QVERIFY(file.open(QIODevice::WriteOnly));
        }
        QFile first(m_spool.filePath(QStringLiteral("report.pdf")));
        QVERIFY(first.open(QIODevice::WriteOnly));
    }

    void expandPattern()
    {
        const QVariantMap job{{"TITLE", "Quarterly report"}, {"USER", "ann"}, {"HOST", "localhost"}};
        const QString pattern = QStringLiteral("${APP_SUPPORT}/${USER}/${TITLE} from ${HOST} \\${kept}.pdf");
        QString result;
        QBENCHMARK {
            result = expandStr(pattern, job);
        }
        QVERIFY(result.contains(QLatin1String("Quarterly report from localhost ${kept}.pdf")));
    }

    void pathFromFormat()
    {
        QString result;
        QBENCHMARK {
            result = f(QStringLiteral("${APP_SUPPORT_PLUGINS}/Filters/%@.workflow"), "Monochrome");
        }
        QVERIFY(result.endsWith(QLatin1String("/Filters/Monochrome.workflow")));
    }

    void globThousandJobs()
    {
        QStringList jobs;
        QBENCHMARK {
            jobs = ls_files(m_spool.filePath(QStringLiteral("*-D3F2UG-*.pdf")));
        }
        QCOMPARE(jobs.size(), 1000);
    }

    void uniqueNameAfter200Clashes()
    {
        QString name;
        QBENCHMARK {
            name = mk_unique_filename(m_spool.filePath(QStringLiteral("report.pdf")));
        }
        QCOMPARE(name, m_spool.filePath(QStringLiteral("report 200.pdf")));
    }
};

QTEST_GUILESS_MAIN(BenchPaths)
#include "bench_paths.moc"
