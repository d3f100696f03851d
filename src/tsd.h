// The tool selection data: the product list with selection and dependency
// logic. The record lives in the session; its operations arrive with the
// product model.
#ifndef KELM_TSD_H
#define KELM_TSD_H

#include <vector>

class Component;

class TSD
{
  public:
    std::vector<Component*> products;
};

#endif
