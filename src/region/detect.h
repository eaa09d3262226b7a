// region/detect.h - the walk that finds stable regions.
//
// Gives    detection with word of whether every region found its place in the list.
// Promises constant memory whatever the depth of the tree, apart from the list.
// Costs    every node is visited once. From a node up to its reference there are at most delta
//          steps; pruning looks at the nodes below a stable region that are nearly as large.
#pragma once

#include <kipx/mser.h>

namespace kipx {

// As KipxDetectMSERs; false when the list could not grow.
bool detect_regions(KipxMSERlist *list, KipxST *tree, const KipxMSERparms &parms);

} // namespace kipx
