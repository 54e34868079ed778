#pragma once
// Translates a whole window at once. Every widget or action that has a text of its own carries
// the dynamic property "tag": "<caption id>T<tool-tip id>", either id replaced by "-" when there
// is none ("3609T-", "1139T1690", "-T3099", "-T-"), or a bare id for the caption alone (menus and
// actions). The caption is whatever text the widget shows: a label's or button's text, a group
// box's title, a text box's contents, the tab text of a tab page, a window's title.

class QWidget;

namespace ql {

// Colours are 0xRRGGBB, -1 for none: `backColor` fills labels, buttons, frames and lists,
// `frameColor` draws the lines of plain frames. Under German only the colours are applied.
// Texts are set only where the table has one, so a missing id leaves the German text.
void TranslateControls(QWidget* form, int backColor = -1, int frameColor = -1);

}  // namespace ql

namespace ql {

// Loads Qt's own texts (the file and print dialogs, standard buttons) in the program's language
// `lang` (kLangGerman, kLangEnglish, kLangRussian) into the running application. English needs
// none. Gives false when Qt's translations are not installed; the dialogs then stay English.
bool installQtTranslations(int lang);

}  // namespace ql
