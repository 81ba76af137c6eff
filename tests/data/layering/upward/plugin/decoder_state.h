// A plug-in header (target of the upward include above).
#pragma once
