// RoutingListView: the routing as a list, a block per device output with a row per source slot:
// the source picker, the phase picker, the gain in dB, and a remove button unless the slot is
// the output's only one; "Add Source" under each block routes the first file channel the
// output doesn't have yet.
//
// Like the matrix, it edits a copy of the routing and hands it out by routingsEdited().
//
// Thread class: main thread (a widget).
#pragma once

#include <QWidget>
#include <string>
#include <vector>

#include "playback/ChannelRouting.h"

class QVBoxLayout;

namespace corvane {

class RoutingListView : public QWidget {
  Q_OBJECT

 public:
  explicit RoutingListView(QWidget* parent = nullptr);

  void setSources(std::vector<std::string> labels);
  void setRoutings(const ChannelRoutings& routings);
  const ChannelRoutings& routings() const { return _routings; }

  // What the rows do, by output and slot position.
  void setSource(int out, int slot, int sourceChannelIndex);
  void setPhase(int out, int slot, RoutingPhase phase);
  void setGainDB(int out, int slot, double gainDB);
  void removeSlot(int out, int slot);
  void addSource(int out);

 signals:
  void routingsEdited(const corvane::ChannelRoutings& routings);

 private:
  void rebuild();
  void edit();

  std::vector<std::string> _labels;
  ChannelRoutings _routings;
  QVBoxLayout* _blocks;
};

}  // namespace corvane
