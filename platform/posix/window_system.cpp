// The headless window system: dialogs made from templates registered per module,
// their controls (texts, combo-box lists and selections), the focus and window
// properties. Nothing is drawn; a host reads the state back to show it, and tests
// read it to check what a dialog procedure did.
//
// Window and module handles are opaque numbers that are never reused and never
// dereferenced, so a destroyed window's handle stays safely invalid. One mutex
// guards all state; it is never held while a dialog procedure runs, so procedures
// may call back into the layer (set texts, destroy themselves, ...).
#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/kx_platform.h"

namespace {

struct Window {
  bool isDialog = false;
  bool destroying = false;  // WM_DESTROY under way
  // Dialog.
  HMODULE module = nullptr;
  int templateId = 0;
  HWND owner = nullptr;
  DLGPROC proc = nullptr;
  std::vector<HWND> controls;  // in template order
  // Control.
  HWND parent = nullptr;
  int id = 0;
  KxControlKind kind = KX_CONTROL_STATIC;
  std::vector<std::u16string> items;  // combo-box list
  intptr_t selection = CB_ERR;
  // Both: title or control text, and properties in the order set.
  std::u16string text;
  std::vector<std::pair<std::u16string, void*>> props;
};

struct StoredControl {
  int id;
  KxControlKind kind;
  std::u16string text;
};
struct StoredTemplate {
  std::u16string title;
  std::vector<StoredControl> controls;
};

struct State {
  std::mutex mutex;
  std::unordered_map<uintptr_t, std::unique_ptr<Window>> windows;
  uintptr_t nextWindow = 1;
  HWND focus = nullptr;
  std::map<std::pair<HMODULE, int>, StoredTemplate> templates;
  std::map<std::string, HMODULE> modules;
  uintptr_t nextModule = 1;
};

// Kept deliberately alive until the process ends, so that objects destroyed by
// static destructors can still close their windows.
State& S() {
  static State* state = new State;
  return *state;
}

std::u16string Copy(const char16_t* text) { return text != nullptr ? std::u16string(text) : std::u16string(); }

// Handles carry a tag in their low bits so that window and module handles differ.
HWND MakeWindowHandle(uintptr_t number) { return reinterpret_cast<HWND>((number << 4) | 0x8); }
HMODULE MakeModuleHandle(uintptr_t number) { return reinterpret_cast<HMODULE>((number << 4) | 0x4); }

Window* Find(State& s, HWND handle) {
  auto it = s.windows.find(reinterpret_cast<uintptr_t>(handle));
  return it != s.windows.end() ? it->second.get() : nullptr;
}

HWND AddWindow(State& s, std::unique_ptr<Window> window) {
  HWND handle = MakeWindowHandle(s.nextWindow++);
  s.windows.emplace(reinterpret_cast<uintptr_t>(handle), std::move(window));
  return handle;
}

Window* FindControl(State& s, HWND dialog, int id, HWND* handle) {
  Window* d = Find(s, dialog);
  if (d == nullptr || !d->isDialog) return nullptr;
  for (HWND c : d->controls) {
    Window* w = Find(s, c);
    if (w != nullptr && w->id == id) {
      if (handle != nullptr) *handle = c;
      return w;
    }
  }
  return nullptr;
}

// Property names compare without regard to ASCII case, as Windows atoms do; an
// integer atom (a "pointer" below 0x10000) is named "#<number>".
std::u16string PropKey(const char16_t* name) {
  const auto value = reinterpret_cast<uintptr_t>(name);
  if (value < 0x10000) {
    std::u16string key = u"#";
    for (char c : std::to_string(value)) key.push_back(static_cast<char16_t>(c));
    return key;
  }
  std::u16string key(name);
  for (auto& c : key) {
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
  }
  return key;
}

bool EqualNoCase(const std::u16string& a, const std::u16string& b) { return PropKey(a.c_str()) == PropKey(b.c_str()); }

int CopyOut(const std::u16string& text, char16_t* buffer, int capacity) {
  if (buffer == nullptr || capacity <= 0) return 0;
  const int n = std::min<int>(static_cast<int>(text.size()), capacity - 1);
  std::memcpy(buffer, text.data(), static_cast<size_t>(n) * sizeof(char16_t));
  buffer[n] = 0;
  return n;
}

// Text of a combo box: setting it selects the item with the same text (if any).
void SetControlText(Window& w, std::u16string text) {
  w.text = std::move(text);
  if (w.kind == KX_CONTROL_COMBOBOX) {
    w.selection = CB_ERR;
    for (size_t i = 0; i < w.items.size(); ++i) {
      if (EqualNoCase(w.items[i], w.text)) {
        w.selection = static_cast<intptr_t>(i);
        break;
      }
    }
  }
}

// Combo-box and text messages to a control; the state mutex is held.
intptr_t ControlMessage(Window& w, uint32_t message, uintptr_t wParam, intptr_t lParam) {
  const auto index = static_cast<intptr_t>(wParam);
  switch (message) {
    case WM_SETTEXT:
      SetControlText(w, Copy(reinterpret_cast<const char16_t*>(lParam)));
      return 1;
    case WM_GETTEXT:
      return CopyOut(w.text, reinterpret_cast<char16_t*>(lParam), static_cast<int>(wParam));
    case WM_GETTEXTLENGTH:
      return static_cast<intptr_t>(w.text.size());
    default:
      break;
  }
  if (w.kind != KX_CONTROL_COMBOBOX) return message >= CB_ADDSTRING && message <= CB_FINDSTRINGEXACT ? CB_ERR : 0;
  switch (message) {
    case CB_ADDSTRING:
      if (lParam == 0) return CB_ERR;
      w.items.push_back(reinterpret_cast<const char16_t*>(lParam));
      return static_cast<intptr_t>(w.items.size()) - 1;
    case CB_INSERTSTRING: {
      if (lParam == 0) return CB_ERR;
      intptr_t at = index;
      if (at == -1) at = static_cast<intptr_t>(w.items.size());
      if (at < 0 || at > static_cast<intptr_t>(w.items.size())) return CB_ERR;
      w.items.insert(w.items.begin() + at, reinterpret_cast<const char16_t*>(lParam));
      if (w.selection != CB_ERR && w.selection >= at) ++w.selection;
      return at;
    }
    case CB_DELETESTRING:
      if (index < 0 || index >= static_cast<intptr_t>(w.items.size())) return CB_ERR;
      w.items.erase(w.items.begin() + index);
      if (w.selection == index) w.selection = CB_ERR;
      else if (w.selection > index) --w.selection;
      return static_cast<intptr_t>(w.items.size());
    case CB_GETCOUNT:
      return static_cast<intptr_t>(w.items.size());
    case CB_GETCURSEL:
      return w.selection;
    case CB_SETCURSEL:
      if (index < 0 || index >= static_cast<intptr_t>(w.items.size())) {
        w.selection = CB_ERR;  // -1 or out of range: no selection, and CB_ERR
        return CB_ERR;
      }
      w.selection = index;
      w.text = w.items[static_cast<size_t>(index)];
      return index;
    case CB_GETLBTEXT: {
      if (index < 0 || index >= static_cast<intptr_t>(w.items.size()) || lParam == 0) return CB_ERR;
      const std::u16string& item = w.items[static_cast<size_t>(index)];
      auto* out = reinterpret_cast<char16_t*>(lParam);
      std::memcpy(out, item.data(), item.size() * sizeof(char16_t));
      out[item.size()] = 0;
      return static_cast<intptr_t>(item.size());
    }
    case CB_GETLBTEXTLEN:
      if (index < 0 || index >= static_cast<intptr_t>(w.items.size())) return CB_ERR;
      return static_cast<intptr_t>(w.items[static_cast<size_t>(index)].size());
    case CB_RESETCONTENT:
      w.items.clear();
      w.selection = CB_ERR;
      return 1;
    case CB_FINDSTRINGEXACT: {
      if (lParam == 0) return CB_ERR;
      const std::u16string wanted = reinterpret_cast<const char16_t*>(lParam);
      const size_t count = w.items.size();
      // The search starts after item wParam (-1: from the top) and wraps around.
      const size_t first = index < 0 || index >= static_cast<intptr_t>(count) ? 0 : static_cast<size_t>(index) + 1;
      for (size_t k = 0; k < count; ++k) {
        const size_t i = (first + k) % count;
        if (EqualNoCase(w.items[i], wanted)) return static_cast<intptr_t>(i);
      }
      return CB_ERR;
    }
    case CB_SELECTSTRING: {
      if (lParam == 0) return CB_ERR;
      const std::u16string prefix = PropKey(reinterpret_cast<const char16_t*>(lParam));
      for (size_t i = 0; i < w.items.size(); ++i) {
        if (PropKey(w.items[i].c_str()).compare(0, prefix.size(), prefix) == 0) {
          w.selection = static_cast<intptr_t>(i);
          w.text = w.items[i];
          return w.selection;
        }
      }
      return CB_ERR;
    }
    default:
      return 0;
  }
}

}  // namespace

extern "C" {

int KxRegisterDialogTemplate(HMODULE module, int templateId, const KxDialogTemplate* dialogTemplate) {
  if (module == nullptr || dialogTemplate == nullptr || dialogTemplate->controlCount < 0 ||
      (dialogTemplate->controlCount > 0 && dialogTemplate->controls == nullptr)) {
    return 0;
  }
  StoredTemplate stored;
  stored.title = Copy(dialogTemplate->title);
  for (int i = 0; i < dialogTemplate->controlCount; ++i) {
    const KxControlTemplate& c = dialogTemplate->controls[i];
    stored.controls.push_back({c.id, c.kind, Copy(c.text)});
  }
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  s.templates[{module, templateId}] = std::move(stored);
  return 1;
}

HMODULE KxGetResourceModule(const char* name) {
  if (name == nullptr) return nullptr;
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  auto it = s.modules.find(name);
  if (it == s.modules.end()) it = s.modules.emplace(name, MakeModuleHandle(s.nextModule++)).first;
  return it->second;
}

HWND KxCreateDialogParamW(HMODULE module, int templateId, HWND owner, DLGPROC dialogProc, intptr_t param) {
  if (dialogProc == nullptr) return nullptr;
  State& s = S();
  HWND dialog;
  HWND firstControl = nullptr;
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    auto it = s.templates.find({module, templateId});
    if (it == s.templates.end()) return nullptr;
    if (owner != nullptr && Find(s, owner) == nullptr) return nullptr;  // an owner must be a live window
    auto window = std::make_unique<Window>();
    window->isDialog = true;
    window->module = module;
    window->templateId = templateId;
    window->owner = owner;
    window->proc = dialogProc;
    window->text = it->second.title;
    Window* d = window.get();
    dialog = AddWindow(s, std::move(window));
    for (const StoredControl& c : it->second.controls) {
      auto control = std::make_unique<Window>();
      control->parent = dialog;
      control->id = c.id;
      control->kind = c.kind;
      control->text = c.text;
      HWND handle = AddWindow(s, std::move(control));
      d->controls.push_back(handle);
      if (firstControl == nullptr) firstControl = handle;
    }
  }
  const intptr_t result = dialogProc(dialog, WM_INITDIALOG, reinterpret_cast<uintptr_t>(firstControl), param);
  std::lock_guard<std::mutex> lock(s.mutex);
  Window* d = Find(s, dialog);
  if (d == nullptr || d->destroying) return nullptr;  // destroyed during its initialisation
  // TRUE from WM_INITDIALOG asks the system to focus the first control.
  if (result != 0 && firstControl != nullptr && Find(s, firstControl) != nullptr) s.focus = firstControl;
  return dialog;
}

int KxDestroyWindow(HWND window) {
  State& s = S();
  DLGPROC proc = nullptr;
  std::vector<HWND> owned;
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    Window* w = Find(s, window);
    if (w == nullptr) return 0;
    if (!w->isDialog) {
      Window* parent = Find(s, w->parent);
      if (parent != nullptr) {
        auto& list = parent->controls;
        list.erase(std::remove(list.begin(), list.end(), window), list.end());
      }
      if (s.focus == window) s.focus = nullptr;
      s.windows.erase(reinterpret_cast<uintptr_t>(window));
      return 1;
    }
    if (w->destroying) return 1;  // already on its way out
    w->destroying = true;
    proc = w->proc;
    for (auto& entry : s.windows) {
      if (entry.second->isDialog && entry.second->owner == window) owned.push_back(reinterpret_cast<HWND>(entry.first));
    }
  }
  for (HWND o : owned) KxDestroyWindow(o);  // owned dialogs go first
  if (proc != nullptr) proc(window, WM_DESTROY, 0, 0);
  std::lock_guard<std::mutex> lock(s.mutex);
  Window* w = Find(s, window);
  if (w == nullptr) return 1;
  for (HWND c : w->controls) {
    if (s.focus == c) s.focus = nullptr;
    s.windows.erase(reinterpret_cast<uintptr_t>(c));
  }
  if (s.focus == window) s.focus = nullptr;
  s.windows.erase(reinterpret_cast<uintptr_t>(window));
  return 1;
}

int KxIsWindow(HWND window) {
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  return Find(s, window) != nullptr ? 1 : 0;
}

int KxSetDlgItemTextW(HWND dialog, int controlId, const char16_t* text) {
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  Window* c = FindControl(s, dialog, controlId, nullptr);
  if (c == nullptr) return 0;
  SetControlText(*c, Copy(text));
  return 1;
}

int KxGetDlgItemTextW(HWND dialog, int controlId, char16_t* text, int capacity) {
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  Window* c = FindControl(s, dialog, controlId, nullptr);
  if (c == nullptr) {
    if (text != nullptr && capacity > 0) text[0] = 0;
    return 0;
  }
  return CopyOut(c->text, text, capacity);
}

HWND KxGetDlgItem(HWND dialog, int controlId) {
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  HWND handle = nullptr;
  FindControl(s, dialog, controlId, &handle);
  return handle;
}

int KxGetDlgCtrlID(HWND control) {
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  Window* w = Find(s, control);
  return w != nullptr && !w->isDialog ? w->id : 0;
}

HWND KxGetParent(HWND window) {
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  Window* w = Find(s, window);
  if (w == nullptr) return nullptr;
  return w->isDialog ? w->owner : w->parent;
}

int KxGetDialogControls(HWND dialog, int* ids, int capacity) {
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  Window* d = Find(s, dialog);
  if (d == nullptr || !d->isDialog) return 0;
  int n = 0;
  for (HWND c : d->controls) {
    Window* w = Find(s, c);
    if (w == nullptr) continue;
    if (ids != nullptr && n < capacity) ids[n] = w->id;
    ++n;
  }
  return n;
}

intptr_t KxSendMessageW(HWND window, uint32_t message, uintptr_t wParam, intptr_t lParam) {
  State& s = S();
  DLGPROC proc;
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    Window* w = Find(s, window);
    if (w == nullptr) return 0;
    if (!w->isDialog) return ControlMessage(*w, message, wParam, lParam);
    switch (message) {
      case WM_SETTEXT:
        w->text = Copy(reinterpret_cast<const char16_t*>(lParam));
        return 1;
      case WM_GETTEXT:
        return CopyOut(w->text, reinterpret_cast<char16_t*>(lParam), static_cast<int>(wParam));
      case WM_GETTEXTLENGTH:
        return static_cast<intptr_t>(w->text.size());
      default:
        break;
    }
    proc = w->proc;
  }
  const intptr_t result = proc(window, message, wParam, lParam);
  // A dialog that leaves WM_CLOSE to the system is sent Cancel, as Windows does.
  if (message == WM_CLOSE && result == 0 && KxIsWindow(window)) {
    KxSendMessageW(window, WM_COMMAND, KxMakeWParam(IDCANCEL, 0), 0);
  }
  return result;
}

HWND KxSetFocus(HWND window) {
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  if (window != nullptr && Find(s, window) == nullptr) return nullptr;  // unknown window: focus unchanged
  HWND previous = s.focus;
  s.focus = window;
  return previous;
}

HWND KxGetFocus(void) {
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  return s.focus;
}

int KxSetPropW(HWND window, const char16_t* name, void* value) {
  if (name == nullptr) return 0;
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  Window* w = Find(s, window);
  if (w == nullptr) return 0;
  const std::u16string key = PropKey(name);
  for (auto& prop : w->props) {
    if (prop.first == key) {
      prop.second = value;
      return 1;
    }
  }
  w->props.emplace_back(key, value);
  return 1;
}

void* KxGetPropW(HWND window, const char16_t* name) {
  if (name == nullptr) return nullptr;
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  Window* w = Find(s, window);
  if (w == nullptr) return nullptr;
  const std::u16string key = PropKey(name);
  for (auto& prop : w->props) {
    if (prop.first == key) return prop.second;
  }
  return nullptr;
}

void* KxRemovePropW(HWND window, const char16_t* name) {
  if (name == nullptr) return nullptr;
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  Window* w = Find(s, window);
  if (w == nullptr) return nullptr;
  const std::u16string key = PropKey(name);
  for (auto it = w->props.begin(); it != w->props.end(); ++it) {
    if (it->first == key) {
      void* value = it->second;
      w->props.erase(it);
      return value;
    }
  }
  return nullptr;
}

int KxGetWindowTextW(HWND window, char16_t* text, int capacity) {
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  Window* w = Find(s, window);
  if (w == nullptr) {
    if (text != nullptr && capacity > 0) text[0] = 0;
    return 0;
  }
  return CopyOut(w->text, text, capacity);
}

int KxSetWindowTextW(HWND window, const char16_t* text) {
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  Window* w = Find(s, window);
  if (w == nullptr) return 0;
  if (w->isDialog) w->text = Copy(text);
  else SetControlText(*w, Copy(text));
  return 1;
}

int KxLiveDialogCount(void) {
  State& s = S();
  std::lock_guard<std::mutex> lock(s.mutex);
  int n = 0;
  for (auto& entry : s.windows) {
    if (entry.second->isDialog) ++n;
  }
  return n;
}

}  // extern "C"

// Headless dialogs get no system messages to route.
extern "C" int KxIsDialogMessageW(HWND /*dialog*/, void* /*message*/) { return 0; }
