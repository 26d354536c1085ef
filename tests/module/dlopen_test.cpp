// A host that loads the module at run time, through its C entry point, and
// calls a method through the object it returns.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc::testing {
namespace {

TEST(LoadableModule, LoadsWithDlopenAndCallsAMethod) {
  void* handle = dlopen(KVC_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(handle, nullptr) << dlerror();
  using Create = TddmContabilidadeBD* (*)();
  using Destroy = void (*)(TddmContabilidadeBD*);
  auto create = reinterpret_cast<Create>(dlsym(handle, "KVContabilidade01_Create"));
  auto destroy = reinterpret_cast<Destroy>(dlsym(handle, "KVContabilidade01_Destroy"));
  ASSERT_NE(create, nullptr);
  ASSERT_NE(destroy, nullptr);
  TddmContabilidadeBD* dm = create();
  ASSERT_NE(dm, nullptr);
  EXPECT_EQ(dm->ContadorDivisao(), 0);
  EXPECT_FALSE(dm->IniciaTransacao()) << "no connection bound yet";
  destroy(dm);
  dlclose(handle);
}

}  // namespace
}  // namespace kvc::testing
