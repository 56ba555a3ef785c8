#include "app/CommandTable.h"

#include <QKeyEvent>
#include <QMenu>
#include <QMenuBar>
#include <QToolButton>
#include <stdexcept>

namespace corvane {

namespace {

constexpr Qt::KeyboardModifiers kChordModifiers =
    Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier | Qt::MetaModifier;

// Symbols that a US layout produces with Shift: they arrive as the shifted key itself.
bool isShiftedSymbol(int key) {
  if (key >= Qt::Key_A && key <= Qt::Key_Z) return false;
  if (key == Qt::Key_Space) return false;
  return key > Qt::Key_Space && key < 0x01000000;  // printable, not a function or arrow key
}

QKeyCombination firstChord(const QKeySequence& sequence) {
  return sequence.isEmpty() ? QKeyCombination() : sequence[0];
}

}  // namespace

CommandTable::CommandTable(std::function<bool()> fileLoaded, QObject* parent)
    : QObject(parent), _fileLoaded(std::move(fileLoaded)) {}

CommandTable::~CommandTable() = default;

// ---- Menus ----------------------------------------------------------------------------------

void CommandTable::declareMenu(const QString& path, const QString& title, const QStringList& groups,
                               const QString& parentGroup) {
  for (const MenuDecl& decl : _menus) {
    if (decl.path == path) throw std::logic_error("menu declared twice: " + path.toStdString());
  }
  _menus.push_back(MenuDecl{path, title, groups, parentGroup});
}

void CommandTable::declareGroups(const QString& path, const QStringList& groups, const QString& afterGroup) {
  for (MenuDecl& decl : _menus) {
    if (decl.path != path) continue;
    const qsizetype at = afterGroup.isEmpty() ? decl.groups.size() : decl.groups.indexOf(afterGroup) + 1;
    if (at <= 0 && !afterGroup.isEmpty()) throw std::logic_error("no group " + afterGroup.toStdString());
    for (qsizetype i = 0; i < groups.size(); ++i) decl.groups.insert(at + i, groups[i]);
    return;
  }
  throw std::logic_error("no menu " + path.toStdString());
}

void CommandTable::buildMenus(QMenuBar* menuBar) {
  std::map<QString, QMenu*> submenus;
  // Submenus first (deepest paths last declared still work: a parent fills its children by
  // path), created unparented and handed to their parent menu when it is filled.
  for (const MenuDecl& decl : _menus) {
    if (!decl.path.contains('/')) continue;
    auto* menu = new QMenu(decl.title, menuBar);
    submenus[decl.path] = menu;
  }
  for (const MenuDecl& decl : _menus) {
    if (decl.path.contains('/')) fillMenu(submenus[decl.path], decl, submenus);
  }
  for (const MenuDecl& decl : _menus) {
    if (decl.path.contains('/')) continue;
    auto* menu = new QMenu(decl.title, menuBar);
    menu->setObjectName(QStringLiteral("menu.%1").arg(decl.path));
    fillMenu(menu, decl, submenus);
    if (!menu->actions().isEmpty()) {
      menuBar->addMenu(menu);
    } else {
      delete menu;
    }
  }
}

void CommandTable::fillMenu(QMenu* menu, const MenuDecl& decl, const std::map<QString, QMenu*>& submenus) {
  bool groupBefore = false;
  for (const QString& group : decl.groups) {
    QList<QAction*> items;
    for (const auto& e : _entries) {
      if (e->spec.menu == decl.path && e->spec.group == group) items << e->action;
    }
    for (const MenuDecl& child : _menus) {
      if (child.path.section('/', 0, -2) != decl.path || child.parentGroup != group || !child.path.contains('/')) continue;
      QMenu* sub = submenus.at(child.path);
      if (!sub->actions().isEmpty()) items << sub->menuAction();
    }
    if (items.isEmpty()) continue;
    if (groupBefore) menu->addSeparator();
    menu->addActions(items);
    groupBefore = true;
  }
}

// ---- Commands -------------------------------------------------------------------------------

QAction* CommandTable::add(CommandSpec spec) {
  if (entry(spec.id)) throw std::logic_error("command registered twice: " + spec.id.toStdString());
  if (!spec.menu.isEmpty()) {
    const auto decl = std::find_if(_menus.begin(), _menus.end(), [&](const MenuDecl& d) { return d.path == spec.menu; });
    if (decl == _menus.end() || !decl->groups.contains(spec.group)) {
      throw std::logic_error("undeclared menu or group for " + spec.id.toStdString());
    }
  }
  auto e = std::make_unique<Entry>();
  e->spec = std::move(spec);
  e->action = new QAction(this);
  e->action->setObjectName(e->spec.id);
  // No Qt shortcut: keys go through dispatch(). The menu shows the key after the tab.
  if (e->spec.isChecked) e->action->setCheckable(true);
  if (e->spec.fillSubmenu) {
    e->submenu = std::make_unique<QMenu>();
    e->action->setMenu(e->submenu.get());
    QMenu* menu = e->submenu.get();
    auto fill = e->spec.fillSubmenu;
    connect(menu, &QMenu::aboutToShow, this, [menu, fill] {
      menu->clear();
      fill(menu);
    });
  }
  const QString id = e->spec.id;
  connect(e->action, &QAction::triggered, this, [this, id] { trigger(id); });
  Entry& added = *e;
  _entries.push_back(std::move(e));
  refreshEntry(added);
  return added.action;
}

CommandTable::Entry* CommandTable::entry(const QString& id) {
  for (auto& e : _entries) {
    if (e->spec.id == id) return e.get();
  }
  return nullptr;
}

const CommandTable::Entry* CommandTable::entry(const QString& id) const {
  for (const auto& e : _entries) {
    if (e->spec.id == id) return e.get();
  }
  return nullptr;
}

const CommandSpec* CommandTable::spec(const QString& id) const {
  const Entry* e = entry(id);
  return e ? &e->spec : nullptr;
}

QAction* CommandTable::action(const QString& id) const {
  const Entry* e = entry(id);
  return e ? e->action : nullptr;
}

QStringList CommandTable::ids() const {
  QStringList list;
  for (const auto& e : _entries) list << e->spec.id;
  return list;
}

QString CommandTable::actionText(const Entry& e) const {
  const QString title = e.spec.currentTitle ? e.spec.currentTitle() : e.spec.title;
  if (e.spec.shortcut.isEmpty()) return title;
  return title + QLatin1Char('\t') + e.spec.shortcut.toString(QKeySequence::NativeText);
}

void CommandTable::refreshEntry(Entry& e) {
  const QString title = e.spec.currentTitle ? e.spec.currentTitle() : e.spec.title;
  e.action->setText(actionText(e));
  e.action->setIconText(title);
  e.action->setToolTip(e.spec.shortcut.isEmpty()
                           ? title
                           : QStringLiteral("%1 (%2)").arg(title, e.spec.shortcut.toString(QKeySequence::NativeText)));
  e.action->setVisible(!e.spec.isShown || e.spec.isShown());
  e.action->setEnabled(isEnabledNow(e.spec.id));
  if (e.spec.isChecked) e.action->setChecked(e.spec.isChecked());
}

void CommandTable::refresh() {
  for (auto& e : _entries) refreshEntry(*e);
}

bool CommandTable::isEnabledNow(const QString& id) const {
  const Entry* e = entry(id);
  if (!e) return false;
  if (e->spec.needsFile && !(_fileLoaded && _fileLoaded())) return false;
  if (e->spec.isShown && !e->spec.isShown()) return false;
  return !e->spec.isEnabled || e->spec.isEnabled();
}

bool CommandTable::trigger(const QString& id) {
  Entry* e = entry(id);
  if (!e || !isEnabledNow(id)) {
    if (e) refreshEntry(*e);
    return false;
  }
  if (e->spec.trigger) e->spec.trigger();
  emit triggered(id);
  // The command may have changed what other commands show (a check mark, an enabled state)
  // without a model signal of its own.
  refresh();
  return true;
}

QToolButton* CommandTable::makeToolButton(const QString& id, QWidget* parent) const {
  auto* button = new QToolButton(parent);
  button->setObjectName(QStringLiteral("button.%1").arg(id));
  if (QAction* a = action(id)) button->setDefaultAction(a);
  return button;
}

// ---- Keys -----------------------------------------------------------------------------------

QKeyCombination CommandTable::normalise(QKeyCombination key) {
  int code = key.key();
  Qt::KeyboardModifiers modifiers = key.keyboardModifiers() & kChordModifiers;
  if (code == Qt::Key_Enter) code = Qt::Key_Return;
  if (code == Qt::Key_Backtab) code = Qt::Key_Tab;
  if (isShiftedSymbol(code)) modifiers &= ~Qt::ShiftModifier;
  return QKeyCombination(modifiers, static_cast<Qt::Key>(code));
}

QKeyCombination CommandTable::keyOf(const QKeyEvent& event) {
  return normalise(QKeyCombination(event.modifiers(), static_cast<Qt::Key>(event.key())));
}

bool CommandTable::isBareKey(QKeyCombination key) {
  return !(key.keyboardModifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier));
}

QString CommandTable::resolve(QKeyCombination key, KeyState state) const {
  key = normalise(key);
  if (state.modalUp) return {};
  if (isBareKey(key) && !state.keyIsFree) return {};
  const Entry* general = nullptr;
  for (const auto& e : _entries) {
    if (e->spec.shortcut.isEmpty() || normalise(firstChord(e->spec.shortcut)) != key) continue;
    if (e->spec.appliesNow) {
      if (e->spec.appliesNow()) return e->spec.id;  // the mode's own meaning of the key wins
    } else if (!general) {
      general = e.get();
    }
  }
  return general ? general->spec.id : QString();
}

bool CommandTable::dispatch(QKeyCombination key, KeyState state) {
  const QString id = resolve(key, state);
  if (id.isEmpty()) return false;
  trigger(id);
  return true;
}

}  // namespace corvane
