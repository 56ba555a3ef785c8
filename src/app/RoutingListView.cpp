#include "app/RoutingListView.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

#include "playback/RoutingGain.h"

namespace corvane {

namespace {
constexpr RoutingPhase kPhases[] = {RoutingPhase::inPhase, RoutingPhase::plus90, RoutingPhase::minus90, RoutingPhase::invert};
}

RoutingListView::RoutingListView(QWidget* parent) : QWidget(parent) {
  setObjectName(QStringLiteral("routingList"));
  _blocks = new QVBoxLayout(this);
  _blocks->setContentsMargins(0, 0, 0, 0);
  _blocks->setSpacing(6);
}

void RoutingListView::setSources(std::vector<std::string> labels) {
  _labels = std::move(labels);
  rebuild();
}

void RoutingListView::setRoutings(const ChannelRoutings& routings) {
  if (routings == _routings) return;
  _routings = routings;
  rebuild();
}

void RoutingListView::edit() {
  emit routingsEdited(_routings);
  // The blocks are rebuilt after the event that caused the edit has finished with its widget.
  QMetaObject::invokeMethod(this, [this] { rebuild(); }, Qt::QueuedConnection);
}

void RoutingListView::setSource(int out, int slot, int src) {
  if (out < 0 || out >= static_cast<int>(_routings.size())) return;
  auto& sources = _routings[static_cast<std::size_t>(out)].sources;
  if (slot < 0 || slot >= static_cast<int>(sources.size())) return;
  // One slot per source and output: picking a source the output has already does nothing.
  if (src >= 0 && std::any_of(sources.begin(), sources.end(), [&](const ChannelSourceSlot& s) { return s.sourceChannelIndex == src; })) {
    return;
  }
  sources[static_cast<std::size_t>(slot)].sourceChannelIndex = src;
  edit();
}

void RoutingListView::setPhase(int out, int slot, RoutingPhase phase) {
  if (out < 0 || out >= static_cast<int>(_routings.size())) return;
  auto& sources = _routings[static_cast<std::size_t>(out)].sources;
  if (slot < 0 || slot >= static_cast<int>(sources.size())) return;
  sources[static_cast<std::size_t>(slot)].phase = phase;
  edit();
}

void RoutingListView::setGainDB(int out, int slot, double gainDB) {
  if (out < 0 || out >= static_cast<int>(_routings.size())) return;
  auto& sources = _routings[static_cast<std::size_t>(out)].sources;
  if (slot < 0 || slot >= static_cast<int>(sources.size())) return;
  sources[static_cast<std::size_t>(slot)].gain = routingGainFromDB(gainDB);
  edit();
}

void RoutingListView::removeSlot(int out, int slot) {
  if (out < 0 || out >= static_cast<int>(_routings.size())) return;
  auto& sources = _routings[static_cast<std::size_t>(out)].sources;
  if (sources.size() <= 1 || slot < 0 || slot >= static_cast<int>(sources.size())) return;
  sources.erase(sources.begin() + slot);
  edit();
}

void RoutingListView::addSource(int out) {
  if (out < 0 || out >= static_cast<int>(_routings.size())) return;
  const auto& sources = _routings[static_cast<std::size_t>(out)].sources;
  for (int src = 0; src < static_cast<int>(_labels.size()); ++src) {
    if (std::none_of(sources.begin(), sources.end(), [&](const ChannelSourceSlot& s) { return s.sourceChannelIndex == src; })) {
      if (corvane::addRoute(_routings, out, src)) edit();
      return;
    }
  }
}

void RoutingListView::rebuild() {
  while (QLayoutItem* item = _blocks->takeAt(0)) {
    delete item->widget();
    delete item;
  }
  for (int out = 0; out < static_cast<int>(_routings.size()); ++out) {
    const ChannelRoutingEntry& entry = _routings[static_cast<std::size_t>(out)];
    auto* block = new QGroupBox(QString::fromStdString(entry.outputChannelLabel), this);
    block->setObjectName(QStringLiteral("output.%1").arg(out));
    auto* rows = new QVBoxLayout(block);
    for (int slot = 0; slot < static_cast<int>(entry.sources.size()); ++slot) {
      const ChannelSourceSlot& s = entry.sources[static_cast<std::size_t>(slot)];
      auto* row = new QHBoxLayout;
      auto* source = new QComboBox(block);
      source->setObjectName(QStringLiteral("source.%1").arg(slot));
      source->addItem(QStringLiteral("\u2014 silent"), -1);
      for (int c = 0; c < static_cast<int>(_labels.size()); ++c) source->addItem(QString::fromStdString(_labels[static_cast<std::size_t>(c)]), c);
      source->setCurrentIndex(std::max(0, source->findData(s.sourceChannelIndex)));
      connect(source, &QComboBox::activated, this, [this, out, slot, source](int index) {
        setSource(out, slot, source->itemData(index).toInt());
      });
      auto* phase = new QComboBox(block);
      phase->setObjectName(QStringLiteral("phase.%1").arg(slot));
      for (RoutingPhase p : kPhases) phase->addItem(QString::fromUtf8(routingPhaseLabel(p).data()), static_cast<int>(p));
      phase->setCurrentIndex(std::max(0, phase->findData(static_cast<int>(s.phase))));
      connect(phase, &QComboBox::activated, this, [this, out, slot](int index) { setPhase(out, slot, kPhases[index]); });
      auto* gain = new QDoubleSpinBox(block);
      gain->setObjectName(QStringLiteral("gain.%1").arg(slot));
      gain->setRange(kRoutingGainMinDB, kRoutingGainMaxDB);
      gain->setDecimals(1);
      gain->setSingleStep(0.5);
      gain->setSuffix(QStringLiteral(" dB"));
      gain->setValue(routingGainDB(s.gain));
      gain->setKeyboardTracking(false);
      connect(gain, &QDoubleSpinBox::valueChanged, this, [this, out, slot](double db) { setGainDB(out, slot, db); });
      row->addWidget(source, 1);
      row->addWidget(phase);
      row->addWidget(gain);
      if (entry.sources.size() > 1) {
        auto* remove = new QToolButton(block);
        remove->setObjectName(QStringLiteral("remove.%1").arg(slot));
        remove->setText(QStringLiteral("\u2212"));
        remove->setToolTip(QStringLiteral("Remove this source"));
        connect(remove, &QToolButton::clicked, this, [this, out, slot] { removeSlot(out, slot); });
        row->addWidget(remove);
      }
      rows->addLayout(row);
    }
    auto* add = new QPushButton(QStringLiteral("Add Source"), block);
    add->setObjectName(QStringLiteral("add"));
    connect(add, &QPushButton::clicked, this, [this, out] { addSource(out); });
    rows->addWidget(add, 0, Qt::AlignLeft);
    _blocks->addWidget(block);
  }
  _blocks->addStretch(1);
}

}  // namespace corvane
