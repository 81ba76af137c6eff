// An engine header that reaches up into the plug-in: the layering check refuses it.
#pragma once
#include "../plugin/decoder_state.h"
