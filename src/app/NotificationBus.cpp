#include "app/NotificationBus.h"

namespace corvane {

NotificationBus& NotificationBus::shared() {
  static NotificationBus* bus = new NotificationBus;
  return *bus;
}

void NotificationBus::post(const QString& name, const QVariant& payload) { emit posted(name, payload); }

QMetaObject::Connection NotificationBus::observe(const QString& name, QObject* context,
                                                 std::function<void(const QVariant&)> handler) {
  return connect(this, &NotificationBus::posted, context,
                 [name, handler = std::move(handler)](const QString& posted, const QVariant& payload) {
                   if (posted == name) handler(payload);
                 });
}

}  // namespace corvane
