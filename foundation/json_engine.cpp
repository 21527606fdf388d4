// The engine's own way of being built from source: this one file compiles all of it that is not a template.
#include <boost/json/src.hpp>
