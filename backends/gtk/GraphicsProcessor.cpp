#include "backends/gtk/GraphicsProcessor.hpp"

#include <array>
#include <epoxy/gl.h>
#include <gtk/gtk.h>
#include <string_view>

#include "backends/gtk/Objects.hpp"

namespace wayloom::gtk {
namespace {

// Mesa's renderers without a graphics processor, and a vendor's.
constexpr std::array<std::string_view, 4> kEmulations = {"llvmpipe", "softpipe", "swrast", "SwiftShader"};

bool isEmulation(std::string_view renderer) {
  for (const auto& name : kEmulations)
    if (renderer.find(name) != renderer.npos) return true;
  return false;
}

}  // namespace

bool hasGraphicsProcessor() {
  if (g_strcmp0(g_getenv("GSK_RENDERER"), "cairo") == 0) return false;
  auto* created = gdk_display_create_gl_context(gdk_display_get_default(), nullptr);
  if (created == nullptr) return false;
  const auto context = ObjectRef<GdkGLContext>::adopting(created);
  if (gdk_gl_context_realize(context.get(), nullptr) == FALSE) return false;
  gdk_gl_context_make_current(context.get());
  const auto* renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
  const bool isReal = renderer != nullptr && !isEmulation(renderer);
  gdk_gl_context_clear_current();
  return isReal;
}

}  // namespace wayloom::gtk
