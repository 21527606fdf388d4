// The JSON engine is built from source, as its documentation describes: this one file compiles all of it that
// is not a template.
#include <boost/json/src.hpp>
