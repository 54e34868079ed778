// The save and print dialogs as a user drives them: the choices, the file name asked for, the
// private copy they work from, failed saves that leave the old report, and printed pages read
// back from a PDF.

#include <QButtonGroup>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTimer>
#include <algorithm>
#include <cstdlib>
#include <unistd.h>

#include "TestApp.h"
#include "TestFiles.h"
#include "TestFs.h"
#include "failure/FailureReport.h"
#include "ui/dialogs/frmPrint.h"
#include "ui/dialogs/frmSave.h"

namespace ql::test {
namespace {

// /data: Bilder (Urlaub (Tief (Tiefer)), its own files), Musik, and `extra` folders "f000"...
struct Report {
  ReportTree t;
  ReportModel m{t};
  uint32_t add(uint32_t parent, const char* name, int64_t size, uint16_t flags = ReportTree::IsFolder) {
    const uint32_t n = parent == kNoNode ? t.addRoot(name) : t.addChild(parent, name, flags);
    t.setSizeAndFiles(n, size, 1);
    if (flags) t.setFolders(n, 1);
    return n;
  }
  uint32_t root = add(kNoNode, "/data", 9000), bilder = add(root, "Bilder", 4000), urlaub = add(bilder, "Urlaub", 3000),
           tief = add(urlaub, "Tief", 2000), tiefer = add(tief, "Tiefer", 1000),
           bilderFiles = add(bilder, "Dateien", 1000, 0), musik = add(root, "Musik", 10);
  explicit Report(int extra = 0) {
    for (int i = 0; i < extra; ++i) add(root, QStringLiteral("f%1").arg(i, 3, 10, QLatin1Char('0')).toUtf8().constData(), 1);
  }
  ReportLook look() const {
    ReportLook l;
    for (int c = 0; c < ReportModel::ColumnCount; ++c)
      l.titles[c] = m.headerData(c, Qt::Horizontal, Qt::DisplayRole).toString();
    return l;
  }
};

std::string readAll(const std::string& path) { return readFile(path).toStdString(); }

QStringList entries(const std::string& dir) {
  return QDir(QString::fromStdString(dir)).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

class OutputDialogs : public ::testing::Test {
 protected:
  void SetUp() override {
    guiApp();
    globals().DataFolder = QString::fromStdString(logs.path());  // the error log goes here
    setFailureDialogHandler([this](const QString& report) { failures << report; });
  }
  void TearDown() override { setFailureDialogHandler({}); }

  // Saves through the dialog as it is set, answering the save-file dialog with `path`.
  bool save(frmSave& dialog, const std::string& path) {
    dialog.commonDialog().setAnswerer([&](cCommonDialog::SaveRequest& r) {
      asked = r;
      r.FileName = QFile::decodeName(QByteArray::fromStdString(path));
      return true;
    });
    dialog.OKButton()->click();
    return dialog.result() == QDialog::Accepted;
  }
  bool saveAll(Report& r, const std::string& path) {
    frmSave dialog(r.t, &r.m, kNoNode, r.look());
    dialog.cboFormat()->setCurrentIndex(1);
    return save(dialog, path);
  }

  TempDir dir, logs;
  QStringList failures;
  cCommonDialog::SaveRequest asked;
};

const std::string kHead = "\"Pfad\";\"Größe (Bytes)\";\"Dateien\";\"Ordner\"\r\n";

TEST_F(OutputDialogs, SavesTheSelectedFolderByLevelsAndTheCurrentView) {
  Report r;
  {
    frmSave dialog(r.t, &r.m, r.bilder, r.look());
    dialog.show();
    EXPECT_TRUE(dialog.optWhat()->button(1)->isEnabled());
    dialog.cboFormat()->setCurrentIndex(1);
    dialog.optWhat()->button(1)->click();
    dialog.optLevels()->button(1)->click();
    dialog.txtLevels()->setText("2");
    ASSERT_TRUE(save(dialog, dir / "selected.csv"));
    EXPECT_EQ(asked.DefaultExt, "csv");
    EXPECT_EQ(readAll(dir / "selected.csv"), kHead + "\"Bilder\";\"4000\";1;1\r\n\"Bilder/Urlaub\";\"3000\";1;1\r\n" +
                                                 "\"Bilder/Urlaub/Tief\";\"2000\";1;1\r\n" +
                                                 "\"Bilder/[Dateien]\";\"1000\";1;0\r\n");
    EXPECT_EQ(dialog.lastFolder(), QString::fromStdString(dir.path()));
  }
  // What is open on the screen, as a column text, to a name with a line break in it.
  r.t.setFlag(r.bilder, ReportTree::Expanded, true);
  frmSave dialog(r.t, &r.m, kNoNode, r.look());
  EXPECT_FALSE(dialog.optWhat()->button(1)->isEnabled());  // nothing selected
  dialog.optLevels()->button(2)->click();
  const std::string odd = dir / "view\nof today.txt";
  ASSERT_TRUE(save(dialog, odd));
  EXPECT_EQ(readAll(odd),
            "Größe (Bytes)\tDateien\tOrdner\tPfad\r\n"
            "        9,000\t      1\t     1\t/data\r\n"
            "        4,000\t      1\t     1\t/data/Bilder\r\n"
            "        3,000\t      1\t     1\t/data/Bilder/Urlaub\r\n"
            "        1,000\t      1\t     0\t/data/Bilder/[Dateien]\r\n"
            "           10\t      1\t     1\t/data/Musik\r\n");
  EXPECT_EQ(entries(dir.path()), (QStringList{"selected.csv", "view\nof today.txt"}));
  EXPECT_TRUE(failures.isEmpty());
}

TEST_F(OutputDialogs, TheReportIsCopiedBeforeTheTreeCanChange) {
  Report r;
  // The selected folder goes while the dialog is open: its choice goes with it.
  {
    frmSave dialog(r.t, &r.m, r.urlaub, r.look());
    dialog.optWhat()->button(1)->click();
    r.t.removeSubtree(r.urlaub);
    EXPECT_FALSE(dialog.optWhat()->button(1)->isEnabled());
    EXPECT_EQ(dialog.optWhat()->checkedId(), 0);
    dialog.cboFormat()->setCurrentIndex(1);
    ASSERT_TRUE(save(dialog, dir / "all.csv"));
    EXPECT_EQ(readAll(dir / "all.csv"), kHead + "\"/data\";\"9000\";1;1\r\n\"/data/Bilder\";\"4000\";1;1\r\n" +
                                            "\"/data/Bilder/[Dateien]\";\"1000\";1;0\r\n" +
                                            "\"/data/Musik\";\"10\";1;1\r\n");
  }
  // Removed once the copy is made (while the file name is asked for): the file still has it.
  frmSave dialog(r.t, &r.m, r.bilder, r.look());
  dialog.optWhat()->button(1)->click();
  dialog.commonDialog().setAnswerer([&](cCommonDialog::SaveRequest& req) {
    r.t.removeSubtree(r.bilder);
    req.FileName = QString::fromStdString(dir / "copy.txt");
    return true;
  });
  dialog.OKButton()->click();
  const std::string text = readAll(dir / "copy.txt");
  EXPECT_NE(text.find("\tBilder\r\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\tBilder/[Dateien]\r\n"), std::string::npos) << text;
}

// A large report is copied in slices with the window alive between them; a change of the tree
// in between starts the copy again, so no row is lost or written twice.
TEST_F(OutputDialogs, ATreeChangedDuringTheCopyIsCopiedAgain) {
  Report r(40000);
  const uint32_t gone = r.t.children(r.root)[100];
  QTimer::singleShot(0, [&] { r.t.removeSubtree(gone); });
  ASSERT_TRUE(saveAll(r, dir / "big.csv"));
  const std::string csv = readAll(dir / "big.csv");
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 1 + 7 + 40000 - 1);
  EXPECT_EQ(csv.find("/f098\""), std::string::npos);
  EXPECT_NE(csv.find("/f097\""), std::string::npos);
  EXPECT_NE(csv.find("/f39999\""), std::string::npos);
}

// A save that cannot begin (one that fails midway is the writer's own test) is the user's to
// mend: a short message with the file and why, no error report, and the old report stays.
TEST_F(OutputDialogs, AFailedSaveTellsWhyAndLeavesTheOldReport) {
  Report r(50);
  QStringList told;
  auto saveTo = [&](const std::string& path) {
    frmSave dialog(r.t, &r.m, kNoNode, r.look());
    dialog.setWarningHandler([&](const QString& text) { told << text; });
    dialog.cboFormat()->setCurrentIndex(1);
    return save(dialog, path);
  };
  EXPECT_FALSE(saveTo(dir / "gone/r.csv"));
  ASSERT_FALSE(told.isEmpty());
  EXPECT_EQ(told.takeLast(), QStringLiteral("'%1' kann nicht geschrieben werden: Der Ordner existiert nicht")
                                 .arg(QString::fromStdString(dir / "gone/r.csv")));

  // A folder that cannot be written to; root writes anywhere but into an immutable folder.
  const std::string ro = dir / "ro";
  makeDir(ro);
  writeFile(ro + "/r.csv", "old report\n");
  const bool root = geteuid() == 0;
  if (root && std::system(("chattr +i '" + ro + "' 2>/dev/null").c_str()) != 0)
    GTEST_SKIP() << "running as root where folders cannot be made immutable";
  ASSERT_EQ(root ? 0 : chmod(ro.c_str(), 0555), 0);
  EXPECT_FALSE(saveTo(ro + "/r.csv"));
  if (root) {
    EXPECT_EQ(std::system(("chattr -i '" + ro + "'").c_str()), 0);
  }
  ASSERT_EQ(told.size(), 1);
  EXPECT_TRUE(told[0].endsWith("Keine Berechtigung")) << told[0].toStdString();
  EXPECT_EQ(readAll(dir / "ro/r.csv"), "old report\n");
  EXPECT_EQ(entries(dir / "ro"), QStringList{"r.csv"});
  EXPECT_TRUE(failures.isEmpty()) << failures.join("\n").toStdString();
}

// What pdftotext says of a PDF: its text, pages parted by form feeds.
QString poppler(const char* tool, const QStringList& args) {
  QProcess p;
  p.start(QString::fromLatin1(tool), args);
  if (!p.waitForFinished(30000) || p.exitCode() != 0) return QStringLiteral("<%1 failed>").arg(tool);
  return QString::fromUtf8(p.readAllStandardOutput());
}

// The first words of the lines that are rows (or titles), in order.
QStringList firstWords(const QString& text) {
  QStringList words;
  for (const QString& line : text.split(QLatin1Char('\n'))) {
    static const QRegularExpression space(QStringLiteral("\\s+"));
    const QStringList w = line.split(space, Qt::SkipEmptyParts);
    if (!w.isEmpty() && !w[0].startsWith(QLatin1String("Seite"))) words << w[0];
  }
  return words;
}

// Every row is printed once, in order, over several pages, with the titles on each.
TEST_F(OutputDialogs, PrintsEveryRowOnPages) {
  if (QStandardPaths::findExecutable(QStringLiteral("pdftotext")).isEmpty())
    GTEST_SKIP() << "pdftotext (poppler-utils) is not installed";
  Report r(150);
  const QString qpdf = QString::fromStdString(dir / "report.pdf");
  {
    frmPrint dialog(r.t, &r.m, kNoNode, r.look());
    dialog.setPrinterChooser([&](QPrinter& printer, QWidget*) {
      printer.setOutputFormat(QPrinter::PdfFormat);
      printer.setOutputFileName(qpdf);
      return true;
    });
    dialog.OKButton()->click();
    const QString text = poppler("pdftotext", {"-layout", qpdf, "-"});
    const QStringList pages = text.split(QLatin1Char('\f'), Qt::SkipEmptyParts);
    ASSERT_GT(dialog.printedPages(), 1);
    EXPECT_EQ(pages.size(), dialog.printedPages());
    for (int p = 0; p < pages.size(); ++p)
      EXPECT_EQ(firstWords(pages[p]).value(p == 0 ? 2 : 0), "Name") << p;  // below the heading
    QStringList rows = firstWords(text).mid(2);
    rows.removeAll("Name");
    QStringList expected{"/data", "Bilder", "Urlaub", "Tief", "Tiefer", "Dateien", "Musik"};
    for (int i = 0; i < 150; ++i) expected << QStringLiteral("f%1").arg(i, 3, 10, QLatin1Char('0'));
    EXPECT_EQ(rows, expected);
  }
  // Cancel in the printer dialog: nothing printed, no file.
  QFile::remove(qpdf);
  frmPrint dialog(r.t, &r.m, kNoNode, r.look());
  dialog.setPrinterChooser([](QPrinter&, QWidget*) { return false; });
  dialog.OKButton()->click();
  EXPECT_EQ(dialog.printedPages(), 0);
  EXPECT_EQ(dialog.result(), QDialog::Rejected);
  EXPECT_TRUE(entries(dir.path()).isEmpty());
  EXPECT_TRUE(failures.isEmpty());
}

}  // namespace
}  // namespace ql::test
