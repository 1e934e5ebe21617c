// Cell: the paths of this switch's own part of the state database.
//
// The state database keeps the status of each switch (a "cell") under a prefix of
// its own; agents name their mounts relative to it:
//
//   group->doMount("r", "Vxlan::VtiStatusDir", Cell::mountpath("vxlan/status"));
//   em.getEntity(Cell::path("vxlan/status"));   // the same entity
//
// mountpath() and path() give the same text: a path mounted with the one is fetched
// with the other.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Cell {

// The id of this switch's cell, 1 unless the host sets another before mounting.
uint32_t cellId();
void cellIdIs(uint32_t id);

// "cell/<id>/" + p.
std::string path(std::string_view p);
std::string mountpath(std::string_view p);

}  // namespace Cell
