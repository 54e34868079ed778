#include "ui/dialogs/cCommonDialog.h"

#include <QFileDialog>
#include <QFileInfo>

namespace ql {

QStringList cCommonDialog::qtFilters(const QString& filter) {
  const QStringList parts = filter.split(QLatin1Char('|'));
  QStringList rows;
  for (qsizetype i = 0; i + 1 < parts.size(); i += 2) {
    const QString& name = parts[i];
    const QString patterns = QString(parts[i + 1]).replace(QLatin1Char(';'), QLatin1Char(' '));
    // The file dialog reads the patterns from the parentheses of the row's name.
    rows << (name.endsWith(QLatin1Char('(') + patterns + QLatin1Char(')'))
                 ? name
                 : name + QStringLiteral(" (") + patterns + QLatin1Char(')'));
  }
  return rows;
}

bool cCommonDialog::VBGetSaveFileName(SaveRequest& request, QWidget* Owner) {
  if (answerer_) {
    SaveRequest answer = request;
    if (!answerer_(answer)) return false;
    answer.FileTitle = QFileInfo(answer.FileName).fileName();
    request = answer;
    return true;
  }
  QFileDialog dialog(Owner, request.DlgTitle, request.InitDir);
  dialog.setAcceptMode(QFileDialog::AcceptSave);
  dialog.setFileMode(QFileDialog::AnyFile);
  dialog.setOption(QFileDialog::DontConfirmOverwrite, !request.OverWritePrompt);
  const QStringList filters = qtFilters(request.Filter);
  dialog.setNameFilters(filters);
  if (request.FilterIndex >= 1 && request.FilterIndex <= filters.size())
    dialog.selectNameFilter(filters[request.FilterIndex - 1]);
  dialog.setDefaultSuffix(request.DefaultExt);
  if (!request.FileName.isEmpty()) dialog.selectFile(request.FileName);
  if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return false;
  request.FileName = dialog.selectedFiles().constFirst();
  request.FileTitle = QFileInfo(request.FileName).fileName();
  const qsizetype index = filters.indexOf(dialog.selectedNameFilter());
  if (index >= 0) request.FilterIndex = static_cast<int>(index) + 1;
  return true;
}

}  // namespace ql
