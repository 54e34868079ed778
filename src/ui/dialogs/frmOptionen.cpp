#include "ui/dialogs/frmOptionen.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include "app/ExplorerEntry.h"
#include "app/Settings.h"
#include "lang/TL.h"
#include "ui/TranslateControls.h"

namespace ql {

namespace {

const QString kOptionen = QStringLiteral("Optionen");

QCheckBox* checkBox(QWidget* parent, const char* name, int id, const char* german) {
  auto* c = new QCheckBox(QString::fromUtf8(german), parent);
  c->setObjectName(QLatin1String(name));
  c->setProperty("tag", QString::number(id));
  return c;
}

QPushButton* button(QWidget* parent, const char* name, int id, const char* german) {
  auto* b = new QPushButton(QString::fromUtf8(german), parent);
  b->setObjectName(QLatin1String(name));
  b->setProperty("tag", QString::number(id));
  return b;
}

// A flag of the file: any number but 0 is on; what does not read as a number is off.
int readFlag(const QString& key, const QString& deflt) {
  return GetSettings(kOptionen, key, deflt).trimmed().toInt() != 0 ? 1 : 0;
}

int value(const QCheckBox* c) { return c->isChecked() ? 1 : 0; }

}  // namespace

frmOptionen::frmOptionen(QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("frmOptionen"));
  chkKontextmenu = checkBox(this, "chkKontextmenu", 3596, "Quorlane im Kontextmenü des Dateimanagers anzeigen");
  chkInstanz = checkBox(this, "chkInstanz", 3592, "Nur eine Programminstanz von Quorlane starten");
  chkDontShowHardlinks =
      checkBox(this, "chkDontShowHardlinks", 3590, "Keine symbolischen Links auf Ordner in der Ordnerliste anzeigen");
  chkFolderColorFade = checkBox(this, "chkFolderColorFade", 3621, "Ordnerebenen farblich voneinander abgrenzen");
  cmdOK = button(this, "cmdOK", 3593, "OK");
  cmdCancel = button(this, "cmdCancel", 3594, "Abbrechen");
  cmdApply = button(this, "cmdApply", 3595, "Übernehmen");
  cmdOK->setDefault(true);
  cmdApply->setEnabled(false);

  auto* layout = new QVBoxLayout(this);
  for (QCheckBox* c : {chkKontextmenu, chkInstanz, chkDontShowHardlinks, chkFolderColorFade}) {
    layout->addWidget(c);
    connect(c, &QCheckBox::clicked, this, guard_.wrap("chk_Click", [this] { OptionenGeaendert(); }));
  }
  lblExclude = new QLabel(this);
  txtExclude = new QPlainTextEdit(this);
  txtExclude->setObjectName(QStringLiteral("txtExclude"));
  txtExclude->setTabChangesFocus(true);
  txtExclude->setFixedHeight(txtExclude->fontMetrics().lineSpacing() * 5 + 12);
  lblExclude->setBuddy(txtExclude);
  layout->addWidget(lblExclude);
  layout->addWidget(txtExclude);
  connect(txtExclude, &QPlainTextEdit::textChanged, this,
          guard_.wrap("txtExclude_Change", [this] { OptionenGeaendert(); }));
  chkSnapshots = new QCheckBox(this);
  chkSnapshots->setObjectName(QStringLiteral("chkSnapshots"));
  layout->addWidget(chkSnapshots);
  connect(chkSnapshots, &QCheckBox::clicked, this,
          guard_.wrap("chk_Click", [this] { OptionenGeaendert(); }));
  auto* limits = new QHBoxLayout;
  lblSnapshotKeep = new QLabel(this);
  txtSnapshotKeep = new QSpinBox(this);
  txtSnapshotKeep->setObjectName(QStringLiteral("txtSnapshotKeep"));
  txtSnapshotKeep->setRange(1, 9999);
  lblSnapshotBudget = new QLabel(this);
  txtSnapshotBudget = new QSpinBox(this);
  txtSnapshotBudget->setObjectName(QStringLiteral("txtSnapshotBudget"));
  txtSnapshotBudget->setRange(0, 2000000);
  for (auto [label, box] :
       {std::pair{lblSnapshotKeep, txtSnapshotKeep}, {lblSnapshotBudget, txtSnapshotBudget}}) {
    label->setBuddy(box);
    limits->addWidget(label);
    limits->addWidget(box);
    connect(box, &QSpinBox::valueChanged, this,
            guard_.wrap("txtSnapshot_Change", [this] { OptionenGeaendert(); }));
  }
  layout->addLayout(limits);
  layout->addSpacing(8);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch(1);
  for (QPushButton* b : {cmdOK, cmdCancel, cmdApply}) buttons->addWidget(b);
  layout->addLayout(buttons);
  layout->setSizeConstraint(QLayout::SetFixedSize);

  connect(cmdOK, &QPushButton::clicked, this, guard_.wrap("cmdOK_Click", [this] {
            if (changed_) OptionenSpeichern();
            accept();
          }));
  connect(cmdCancel, &QPushButton::clicked, this, guard_.wrap("cmdCancel_Click", [this] { reject(); }));
  connect(cmdApply, &QPushButton::clicked, this, guard_.wrap("cmdApply_Click", [this] {
            OptionenSpeichern();
            cmdApply->setEnabled(false);
          }));

  guard_.run("Form_Load", [this] {
    setWindowTitle(TL(3597, "Optionen"));
    lblExclude->setText(
        TL(4446, "Ausschließen (ein Muster je Zeile, mit / auf den Pfad unter der Quelle):"));
    chkSnapshots->setText(TL(4572, "Nach jedem vollständigen Scan einen Schnappschuss behalten"));
    lblSnapshotKeep->setText(TL(4573, "Schnappschüsse je Ordner:"));
    lblSnapshotBudget->setText(TL(4574, "Höchstens MB für alle Schnappschüsse:"));
    TranslateControls(this);
    loaded_ = false;
    OptionenLaden();
  });
}

void frmOptionen::showEvent(QShowEvent* event) {
  QDialog::showEvent(event);
  loaded_ = true;
}

void frmOptionen::OptionenGeaendert() {
  if (!loaded_) return;
  changed_ = true;
  cmdApply->setEnabled(true);
}

void frmOptionen::OptionenLaden() {
  guard_.run("OptionenLaden", [this] {
    chkKontextmenu->setChecked(readFlag(QStringLiteral("Kontextmenu"), QLatin1String(kKontextmenuDialogDefault)));
    // The entry follows the file, also when someone has removed it by hand.
    SetExplorerEntry(value(chkKontextmenu));
    for (auto [box, key] : {std::pair{chkInstanz, "Instanz"}, {chkDontShowHardlinks, "NoHardlinks"},
                            {chkFolderColorFade, "FolderColorFade"}}) {
      const QString k = QLatin1String(key);
      box->setChecked(readFlag(k, settingDefault(kOptionen, k)));
    }
    QStringList patterns;
    for (const std::string& p : LoadExcludePatterns()) patterns << QString::fromStdString(p);
    txtExclude->setPlainText(patterns.join(QLatin1Char('\n')));
    chkSnapshots->setChecked(readFlag(QStringLiteral("Snapshots"), QStringLiteral("1")));
    const auto number = [](const char* key, int deflt) {
      bool ok = false;
      const int n = GetSettings(kOptionen, QLatin1String(key)).trimmed().toInt(&ok);
      return ok ? n : deflt;
    };
    txtSnapshotKeep->setValue(number("SnapshotKeep", 12));
    txtSnapshotBudget->setValue(number("SnapshotBudgetMB", 2000));
  });
}

void frmOptionen::OptionenSpeichern() {
  guard_.run("OptionenSpeichern", [this] {
    StoreSettings(kOptionen, QStringLiteral("Kontextmenu"), value(chkKontextmenu));
    SetExplorerEntry(value(chkKontextmenu));
    StoreSettings(kOptionen, QStringLiteral("Instanz"), value(chkInstanz));
    StoreSettings(kOptionen, QStringLiteral("NoHardlinks"), value(chkDontShowHardlinks));
    StoreSettings(kOptionen, QStringLiteral("FolderColorFade"), value(chkFolderColorFade));
    // Patterns are taken as typed, one a line; blank lines are no pattern.
    std::vector<std::string> patterns;
    for (const QString& line : txtExclude->toPlainText().split(QLatin1Char('\n')))
      if (!line.trimmed().isEmpty()) patterns.push_back(line.toStdString());
    SaveExcludePatterns(patterns);
    StoreSettings(kOptionen, QStringLiteral("Snapshots"), value(chkSnapshots));
    StoreSettings(kOptionen, QStringLiteral("SnapshotKeep"), txtSnapshotKeep->value());
    StoreSettings(kOptionen, QStringLiteral("SnapshotBudgetMB"), txtSnapshotBudget->value());
  });
}

}  // namespace ql
