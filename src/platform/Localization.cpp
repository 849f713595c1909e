#include "velmor/Localization.h"

#include <memory>
#include <mutex>
#include <utility>

namespace velmor {

namespace {

using Table = std::map<std::string, std::string, std::less<>>;

// Readers take a snapshot, so a table can be replaced while texts are looked up.
std::mutex tableMutex;
std::shared_ptr<const Table> currentTable;

std::shared_ptr<const Table> snapshot() {
  std::lock_guard<std::mutex> lock(tableMutex);
  return currentTable;
}

}  // namespace

void Localization::setTable(Table table) {
  auto replacement = std::make_shared<const Table>(std::move(table));
  std::lock_guard<std::mutex> lock(tableMutex);
  currentTable = std::move(replacement);
}

std::string Localization::localizedString(std::string_view english) {
  std::shared_ptr<const Table> table = snapshot();
  if (table) {
    auto it = table->find(english);
    if (it != table->end()) return it->second;
  }
  return std::string(english);
}

}  // namespace velmor
