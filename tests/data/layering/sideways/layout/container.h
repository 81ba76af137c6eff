// A layout header (target of the sideways include above).
#pragma once
