#include "ui/dialogs/ReportOutputDialog.h"

#include <QAbstractItemModel>
#include <QApplication>
#include <QButtonGroup>
#include <QCloseEvent>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpressionValidator>
#include <QStyle>
#include <QVBoxLayout>
#include <climits>

#include "lang/TL.h"

namespace ql {

namespace {
// The German text stands in the code; the tag names its id for the other languages.
template <class W>
W* tagged(W* w, int id) {
  w->setProperty("tag", QString::number(id));
  return w;
}

QLabel* heading(const QString& text, int id, QWidget* parent) {
  auto* l = tagged(new QLabel(text, parent), id);
  QFont f = l->font();
  f.setBold(true);
  l->setFont(f);
  return l;
}
}  // namespace

ReportOutputDialog::ReportOutputDialog(const char* module, ReportTree& tree, QAbstractItemModel* watch,
                                       uint32_t selected, const ReportLook& look, bool print, QWidget* parent)
    : QDialog(parent), tree_(tree), look_(look), guard_(module), selected_(selected),
      generation_(tree.generation()) {
  setModal(true);
  setWindowFlag(Qt::WindowContextHelpButtonHint, false);

  auto* outer = new QHBoxLayout(this);
  auto* picDrucken = new QLabel(this);
  picDrucken->setObjectName(QStringLiteral("picDrucken"));
  const QIcon icon = QIcon::fromTheme(print ? QStringLiteral("document-print") : QStringLiteral("document-save"),
                                      style()->standardIcon(print ? QStyle::SP_FileDialogDetailedView
                                                                  : QStyle::SP_DialogSaveButton));
  picDrucken->setPixmap(icon.pixmap(48, 48));
  picDrucken->setAlignment(Qt::AlignTop | Qt::AlignHCenter);
  outer->addWidget(picDrucken);

  auto* col = new QVBoxLayout;
  outer->addLayout(col, 1);
  // Save and print have the same controls under ids of their own.
  col->addWidget(print ? heading(QStringLiteral("Was soll gedruckt werden?"), 3706, this)
                       : heading(QStringLiteral("Was soll gespeichert werden?"), 3709, this));
  optWhat_ = new QButtonGroup(this);
  optWhat_->setObjectName(print ? QStringLiteral("optWasDrucken") : QStringLiteral("optWasSpeichern"));
  auto* all = tagged(new QRadioButton(QStringLiteral("Alle Ordner"), this), print ? 3707 : 3710);
  auto* one = tagged(new QRadioButton(QStringLiteral("Ausgewählter Ordner"), this), print ? 3708 : 3711);
  optWhat_->addButton(all, 0);
  optWhat_->addButton(one, 1);
  for (auto* b : {all, one}) col->addWidget(b);
  col->addSpacing(8);

  col->addWidget(print ? heading(QStringLiteral("Wieviele Ordnerebenen sollen gedruckt werden?"), 3618, this)
                       : heading(QStringLiteral("Wieviele Ordnerebenen sollen gespeichert werden?"), 3524, this));
  optLevels_ = new QButtonGroup(this);
  optLevels_->setObjectName(QStringLiteral("optLevels"));
  auto* allLevels = tagged(new QRadioButton(QStringLiteral("Alle Ordnerebenen"), this), print ? 3614 : 3608);
  auto* count = new QRadioButton(this);
  auto* view = tagged(new QRadioButton(QStringLiteral("Aktuelle Ordneransicht"), this), print ? 3613 : 3607);
  optLevels_->addButton(allLevels, 0);
  optLevels_->addButton(count, 1);
  optLevels_->addButton(view, 2);
  col->addWidget(allLevels);
  auto* countRow = new QHBoxLayout;
  countRow->addWidget(count);
  txtLevels_ = new QLineEdit(QStringLiteral("1"), this);
  txtLevels_->setObjectName(QStringLiteral("txtLevels"));
  // Digits only, and few enough that the number stays a number.
  txtLevels_->setValidator(new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[0-9]{0,9}")), txtLevels_));
  txtLevels_->setMaxLength(9);
  txtLevels_->setFixedWidth(txtLevels_->fontMetrics().horizontalAdvance(QStringLiteral("0000000")));
  txtLevels_->setAlignment(Qt::AlignRight);
  countRow->addWidget(txtLevels_);
  countRow->addWidget(tagged(new QLabel(QStringLiteral("Ordnerebenen"), this), print ? 3617 : 3611));
  countRow->addStretch(1);
  col->addLayout(countRow);
  col->addWidget(view);
  // Typing a number chooses the number.
  connect(txtLevels_, &QLineEdit::textEdited, this, guard_.wrap("txtLevels_Change", [count] { count->setChecked(true); }));
  col->addSpacing(8);

  extra_ = new QGridLayout;
  col->addLayout(extra_);
  col->addStretch(1);

  auto* buttons = new QHBoxLayout;
  buttons->addStretch(1);
  OKButton_ = tagged(new QPushButton(QStringLiteral("OK"), this), print ? 3616 : 3610);
  OKButton_->setObjectName(QStringLiteral("OKButton"));
  OKButton_->setDefault(true);
  CancelButton_ = tagged(new QPushButton(QStringLiteral("Abbrechen"), this), print ? 3615 : 3609);
  CancelButton_->setObjectName(QStringLiteral("CancelButton"));
  buttons->addWidget(OKButton_);
  buttons->addWidget(CancelButton_);
  col->addLayout(buttons);
  connect(CancelButton_, &QPushButton::clicked, this, guard_.wrap("CancelButton_Click", [this] { reject(); }));

  all->setChecked(true);
  allLevels->setChecked(true);
  refreshSelection();
  if (watch) {
    // Any change of the tree's shape: a slice of a copy in progress is no longer to be trusted,
    // and the selected folder may be gone.
    const auto changed = guard_.wrap("tvwPL_Change", [this] {
      treeChanged_ = true;
      refreshSelection();
    });
    connect(watch, &QAbstractItemModel::rowsRemoved, this, changed);
    connect(watch, &QAbstractItemModel::rowsInserted, this, changed);
    connect(watch, &QAbstractItemModel::rowsMoved, this, changed);
    connect(watch, &QAbstractItemModel::modelReset, this, changed);
    connect(watch, &QAbstractItemModel::layoutChanged, this, changed);
  }
}

void ReportOutputDialog::refreshSelection() {
  if (tree_.generation() != generation_ || !tree_.isLive(selected_)) selected_ = kNoNode;
  QAbstractButton* one = optWhat_->button(1);
  one->setEnabled(selected_ != kNoNode && !busy_);
  if (selected_ == kNoNode && one->isChecked()) optWhat_->button(0)->setChecked(true);
}

uint32_t ReportOutputDialog::chosenBranch() const {
  return optWhat_->checkedId() == 1 && selected_ != kNoNode ? selected_ : kNoNode;
}

int ReportOutputDialog::levelsNumber() const {
  bool ok = false;
  const int n = txtLevels_->text().toInt(&ok);
  return ok && n >= 0 ? n : 0;
}

bool ReportOutputDialog::copyBranch(BranchCopy& copy, const std::function<void(size_t)>& progress) {
  constexpr size_t kSlice = 16384;
  treeChanged_ = false;
  while (!copy.step(kSlice)) {
    if (progress) progress(copy.expandedFolders());
    QCoreApplication::processEvents();
    if (!copy.startLive()) return false;
    if (treeChanged_) {
      treeChanged_ = false;
      copy.restart();
    }
  }
  return copy.startLive();
}

void ReportOutputDialog::setBusy(bool on) {
  busy_ = on;
  OKButton_->setEnabled(!on);
  CancelButton_->setEnabled(!on);
  for (QAbstractButton* b : optLevels_->buttons()) b->setEnabled(!on);
  optWhat_->button(0)->setEnabled(!on);
  refreshSelection();
  txtLevels_->setEnabled(!on);
  if (on)
    QApplication::setOverrideCursor(Qt::WaitCursor);
  else
    QApplication::restoreOverrideCursor();
}

void ReportOutputDialog::tellNotWritten(const QString& file, const QString& reason) {
  const QString text = TL(4403, "'%1' kann nicht geschrieben werden: %2", {file, reason});
  if (warn_)
    warn_(text);
  else
    QMessageBox::warning(this, windowTitle(), text);
}

// The dialog stays while it writes or prints: what it works on lives in it.
void ReportOutputDialog::reject() {
  if (!busy_) QDialog::reject();
}

void ReportOutputDialog::closeEvent(QCloseEvent* event) {
  if (busy_)
    event->ignore();
  else
    QDialog::closeEvent(event);
}

}  // namespace ql
