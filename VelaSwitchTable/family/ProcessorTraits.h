#pragma once

#include "VelaSwitchTable/family/HashFamily.h"

/// What hash tables of one processor have in common; a family says the rest.
namespace VelaSwitchTable {

/// Of a pipeline's ingress ACL processor.
constexpr HashFamilyTraits aclTraits(HashFamilyTraits own) {
  own.placement = HashPlacement::ownPipeline;
  own.prefix = "ingress/processor_acl[%d]/";
  own.rowWords = 7;
  own.hashBits = 11;
  own.ways = 2;
  own.staticWord = 5;
  own.stride = TableConstants::aclTableStride;
  own.decodedText = "Decoded Entry: ";
  return own;
}

/// Of the layer-3 processors, which all hold the same rows.
constexpr HashFamilyTraits layer3Traits(HashFamilyTraits own) {
  own.placement = HashPlacement::everyPipeline;
  own.prefix = "ingress/processor_l3[%d]/";
  own.rowImpliesKey = true;
  own.hitBits = true;
  own.staticWord = 4;
  return own;
}

}  // namespace VelaSwitchTable
