// New pictures for the scan, from nothing and from others.
#ifndef FUZZ_PICTURE_MUTATOR_H
#define FUZZ_PICTURE_MUTATOR_H

#include "code_maker.h"
#include "picture_input.h"

// A code of any kind, valid or damaged; now and then a field of finder patterns, `side` pixels at
// most without its margin.
Picture Mutator_NewCode(Random& random, int side);

// Turns, bends, blurs, dims or speckles the picture, takes pieces out or repeats them, or lays a
// new code over it. It stays within PICTURE_SIDE_MAX on each side.
void Mutator_Change(Picture& picture, Random& random);

// A part of the picture, any rectangle.
Picture Mutator_Piece(const Picture& picture, Random& random);

// Lays the other picture, or a piece of it, over this one.
void Mutator_Cross(Picture& picture, const Picture& other, Random& random);

#endif
