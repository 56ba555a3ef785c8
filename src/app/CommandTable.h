// CommandTable: every command of the window as data, the menus built from it, and the one key
// dispatcher.
//
// A command is a CommandSpec: its title, its key (Linux form: Ctrl for the other platform's
// command key, Alt for option, Meta for control), where it stands in the menus, when it is
// enabled (from the model, re-read whenever a model signal registered with refreshWhen()
// fires), and what it does. Each command has one QAction, which the menus and any tool button
// share, so a title, a check mark or an enabled state changes everywhere at once.
//
// Keys. Qt fires neither of two enabled actions that share a shortcut, and several commands
// share keys by design (Backspace cuts in edit mode, deletes a region in dialogue mode and a
// chapter boundary in chapter mode; L loops, or picks the lasso in spectral mode). So no action
// carries a Qt shortcut: the menus only show the key (after a tab in the action's text), and
// every key press of the application comes to dispatch() (GlobalKeyFilter), which
//   1. collects the commands bound to the key;
//   2. keeps those that claim the key now (appliesNow, usually "in mode X"; a command without
//      that test claims it in every mode), preferring a command with a test that holds over
//      one without (the mode's own meaning of a key wins over the general one);
//   3. runs the first of them, in the order of registration, if it is enabled. A key bound to
//      a command that is disabled does nothing at all.
// A key without Ctrl, Alt or Meta (a bare key, or Shift with one) only reaches a command while
// the key is "free": no modal dialog is up and the focus is not in a text field or spin box,
// so typing never triggers commands. While a modal dialog is up no command is reached.
//
// Menus. The menu bar's menus and their groups are declared in order (declareMenu); a command
// names its menu and group, and stands after the commands registered before it in that group.
// Groups are divided by separators. A later subsystem adds its commands by calling add() with
// specs of its own (and, for a menu of its own, declareMenu()) before buildMenus() runs; keys
// it shares with other commands are resolved by their appliesNow tests.
//
// Thread class: main thread.
#pragma once

#include <QAction>
#include <QKeyCombination>
#include <QKeySequence>
#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>
#include <map>
#include <memory>
#include <vector>

class QKeyEvent;
class QMenu;
class QMenuBar;
class QToolButton;
class QWidget;

namespace corvane {

struct CommandSpec {
  QString id{};        // stable, e.g. "view.playPause"
  QString title{};     // "Play / Pause"
  // A title that follows the model ("Enter Edit Mode" / "Exit Edit Mode"); null: `title`.
  std::function<QString()> currentTitle{};
  QKeySequence shortcut{};  // one chord; empty: no key
  QString menu{};           // a declared menu path: "File", "View", "View/Spectral"
  QString group{};          // a declared group of that menu
  // Disabled while no file is loaded (most commands), on top of isEnabled.
  bool needsFile = false;
  std::function<bool()> isEnabled{};   // null: enabled
  // Whether the command stands in its menu at all (Save only while overwriting is allowed);
  // a hidden command is also disabled, key and all. Null: always shown.
  std::function<bool()> isShown{};
  std::function<bool()> isChecked{};   // null: not a check item
  // For keys shared with other commands: whether this command claims its key now (typically
  // "its mode is on"). Null: it claims it in every mode, after the mode-specific ones.
  std::function<bool()> appliesNow{};
  std::function<void()> trigger{};
  // A submenu filled each time it opens (Open Recent); the command then has no trigger.
  std::function<void(QMenu*)> fillSubmenu{};
};

// Where the keyboard stands when a key arrives. (At namespace scope: a nested type with member
// initialisers can't be a default argument inside its own class.)
struct CommandKeyState {
  bool keyIsFree = true;  // no modal dialog, no text field with the focus
  bool modalUp = false;
};

class CommandTable : public QObject {
  Q_OBJECT

 public:
  // `fileLoaded` answers the needsFile rule.
  explicit CommandTable(std::function<bool()> fileLoaded, QObject* parent = nullptr);
  ~CommandTable() override;

  // ---- Menus ----------------------------------------------------------------------------
  // A menu of the menu bar ("File"), or a submenu ("View/Spectral") placed in `parentGroup` of
  // its parent, with its groups in order. Menus appear in the order declared.
  void declareMenu(const QString& path, const QString& title, const QStringList& groups,
                   const QString& parentGroup = {});
  // Adds groups to a declared menu, after `afterGroup` (or at the end when it is empty).
  void declareGroups(const QString& path, const QStringList& groups, const QString& afterGroup = {});
  // Fills `menuBar` with every declared menu that holds a command.
  void buildMenus(QMenuBar* menuBar);

  // ---- Commands -------------------------------------------------------------------------
  // Registers a command; its action is returned (it is the table's). An id used twice, or an
  // undeclared menu or group, is a programming error (std::logic_error).
  QAction* add(CommandSpec spec);
  const CommandSpec* spec(const QString& id) const;
  QAction* action(const QString& id) const;
  // Every command's id, in the order of registration.
  QStringList ids() const;

  // Enabled, checked and title re-read from the model for every command.
  void refresh();
  // Re-reads the table whenever `sender` emits `signal`.
  template <typename Sender, typename Signal>
  void refreshWhen(Sender* sender, Signal signal) {
    connect(sender, signal, this, [this] { refresh(); });
  }
  // Whether the command may run now (needsFile and isEnabled), read live.
  bool isEnabledNow(const QString& id) const;
  // Runs the command if it is enabled; returns whether it ran.
  bool trigger(const QString& id);

  // A tool button that shows and runs the command (shares its action).
  QToolButton* makeToolButton(const QString& id, QWidget* parent) const;

  // ---- Keys -----------------------------------------------------------------------------
  using KeyState = CommandKeyState;
  // The command a key would reach now (step 1 and 2 of the rule), enabled or not; empty for
  // none.
  QString resolve(QKeyCombination key, KeyState state = {}) const;
  // The whole rule: true when the key was bound to a command that claims it now (which then
  // ran if it was enabled); false when the key belongs to nobody and should go on.
  bool dispatch(QKeyCombination key, KeyState state = {});

  // A key press as the table compares keys: Ctrl, Alt, Shift and Meta only (no keypad flag);
  // Enter as Return; Shift dropped for the symbols it produces ("{" arrives as itself, so a
  // command bound to "{" matches Shift+[ on a US layout).
  static QKeyCombination keyOf(const QKeyEvent& event);
  static QKeyCombination normalise(QKeyCombination key);
  // Whether a key needs the "free" condition: no Ctrl, Alt or Meta.
  static bool isBareKey(QKeyCombination key);

 signals:
  // A command ran (by menu, button or key).
  void triggered(const QString& id);

 private:
  struct Entry {
    CommandSpec spec;
    QAction* action = nullptr;
    std::unique_ptr<QMenu> submenu;
  };
  struct MenuDecl {
    QString path;
    QString title;
    QStringList groups;
    QString parentGroup;
  };

  Entry* entry(const QString& id);
  const Entry* entry(const QString& id) const;
  void refreshEntry(Entry& entry);
  QString actionText(const Entry& entry) const;
  void fillMenu(QMenu* menu, const MenuDecl& decl, const std::map<QString, QMenu*>& submenus);

  std::function<bool()> _fileLoaded;
  std::vector<std::unique_ptr<Entry>> _entries;
  std::vector<MenuDecl> _menus;
};

}  // namespace corvane
