#include "sections/bank_table.h"

// Defined here so that the class's type information has one home in the library, which the
// document's dynamic conversions rely on.
C_KOfdBankTable::~C_KOfdBankTable() = default;
