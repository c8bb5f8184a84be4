#pragma once

namespace libzentadbpp {

class ShownData;

// Brings back into the data what is live and not reached, one step after the other, until none does anything. Whatever
// a step puts in is reached, with all that it leads to, before the next one:
// 1. Lists that are not merged into those of arrays: of this instance, then of each other one, ascending. The first
//    instance that lists a document decides where it is, wherever its winning lists have it; its other leaves add the
//    rest, once.
// 2. What was lost: the list of any revision gives its elements back to its array, or to the one that took its place;
//    lists of this instance come first, then open ones of arrays that nothing shows, then the latest.
// 3. A lost member: a document that an earlier revision of a reached one had at a member where nothing is now.
void recover_lost(ShownData& data);

}  // namespace libzentadbpp
