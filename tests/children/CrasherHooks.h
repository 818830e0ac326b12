#pragma once

/// Parts of tests/children/crasher that use the platform's own means.
#include <string_view>

namespace corvane::crasher {

/// Sets limits: no core file, and a stack that overflows soon.
void limitResources();

// Real faults where the processor has them, else the signal.
void writeToNull();
void divideByZero();
void runIllegalInstruction();

/// Deaths that only this platform has; returns if it has none of that name. On Windows "exception=CODE"
/// (hexadecimal) raises a structured exception, and "bare-thread" writes to null in a thread that the C
/// run-time knows nothing of.
void dieLikeHere(std::string_view death);

/// Takes the lock round every use of the heap, for good.
void lockHeap();

/// From here on a use of the heap by the calling thread reports "heap used" on standard error.
void watchHeap();

/// Has a "|" written after each piece that goes to a file.
void markPieces();

/// Has `function` called, once, before the piece of that number (from 1) goes to a file.
void callBeforePiece(int number, void (*function)());

} // namespace corvane::crasher
