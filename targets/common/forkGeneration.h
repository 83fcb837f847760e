// Which process a target's state belongs to: a number that every fork child increments (through
// pthread_atfork). A thread, a lock or a buffer that a parent built is the parent's; a target that
// finds another number is in a child and must neither use, flush nor join that state.
#pragma once

unsigned processGeneration();
