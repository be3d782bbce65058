// The root of every interface and implementation class.
//
// There is no reference count: an object has exactly one owner, and the owner's Destroy call,
// through any interface of the object, deletes the complete object.
#pragma once

#include "frame/types.h"

class I_Unknown {
 public:
  virtual HRESULT Destroy() = 0;

 protected:
  virtual ~I_Unknown() = default;
};

class C_Unknown : public virtual I_Unknown {
 public:
  HRESULT Destroy() override {
    delete this;
    return S_OK;
  }
  virtual ~C_Unknown() = default;
};
