#pragma once

#include "classifier/rule.h"
#include "host/control.h"

/// What the classifier tells of its rules, as the generated records want it.
char* wireName(const classifier::Name& name);
control_fate wireFate(classifier::Fate fate);
