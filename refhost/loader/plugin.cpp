#include "ac/plugin.h"

#include "loader/plugin_impl.h"

namespace ac {

Plugin::Plugin() : impl_(std::make_unique<Impl>()) {}
Plugin::~Plugin() = default;

void Plugin::set_name(const std::string& name) { impl_->name = name; }

void Plugin::set_run(int (*run)()) { impl_->run = run; }

void Plugin::add_messages_interested(const MessageListener* listeners, std::size_t count) {
  impl_->listeners.insert(impl_->listeners.end(), listeners, listeners + count);
}

}  // namespace ac
