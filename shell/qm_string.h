// The SDK's string and number helpers.
#ifndef SHELL_QM_STRING_H
#define SHELL_QM_STRING_H

// Decimal text to a number: leading blanks, one sign, digits up to the first other character.
// Saturates at the 32-bit limits; no digits give 0. `text` must not be null.
int qm_atoi(const char* text);

// Hexadecimal text to a number: leading blanks, an optional 0x or 0X, digits of either case up to
// the first other character. Keeps the low 32 bits; no digits give 0. `text` must not be null.
unsigned int qm_atoh(const char* text);

// Upper-cases a null-terminated string in place. `text` must not be null.
void qm_strupr(char* text);

#endif  // SHELL_QM_STRING_H
