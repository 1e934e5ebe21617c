#include "platform/statehub/Cell.h"

namespace Cell {

namespace {
uint32_t currentCellId = 1;
}  // namespace

uint32_t cellId() {
  return currentCellId;
}

void cellIdIs(uint32_t id) {
  currentCellId = id;
}

std::string path(std::string_view p) {
  return "cell/" + std::to_string(currentCellId) + "/" + std::string(p);
}

std::string mountpath(std::string_view p) {
  return path(p);
}

}  // namespace Cell
