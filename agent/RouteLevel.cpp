#include "agent/RouteLevel.h"

namespace VelaAgent {

using Ipnet::IpAddr;
using Ipnet::IpPrefix;
using VelaSwitch::NexthopIndexes;
using VelaSwitchTable::EntryCellIndex;
using VelaSwitchTable::EntryCellResult;
using VelaSwitchTable::LpmResult;

namespace {

/// Where whole routes keep their next hop.
const EntryCellIndex routeCell(0);

}  // namespace

LpmResult routeResult(NexthopIndexes nexthop, U8 prefixLen) {
  LpmResult result;
  result.cellResultIs(routeCell, cellOf(nexthop, prefixLen));
  return result;
}

NexthopIndexes routeNexthop(const LpmResult& result) {
  return result.cellResult(routeCell).nexthopIndexes();
}

EntryCellResult cellOf(NexthopIndexes nexthop, U8 realPrefixLen) {
  EntryCellResult cell;
  cell.nexthopIndexes = nexthop;
  cell.realPrefixLen = realPrefixLen;
  return cell;
}

U32 bitsBehind(const IpPrefix& prefix, U8 from) {
  if (prefix.len() == from) return 0;
  const U32 behind = from == 0 ? prefix.address().number() : prefix.address().number() << from;
  return behind >> (32 - (prefix.len() - from));
}

IpPrefix longer(const IpPrefix& base, U8 extra, U32 bits) {
  const U8 len = static_cast<U8>(base.len() + extra);
  const U32 behind = len == 0 ? 0 : bits << (32 - len);
  return {IpAddr(base.address().number() | behind), len};
}

}  // namespace VelaAgent
