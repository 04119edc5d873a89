#include "FakeVela.h"

#include <cstdint>

namespace fakevela {

State& state() {
  static State theState;
  return theState;
}

void reset() {
  state() = {};
}

namespace {

// Logs the call with the handle's number, which newgIIVela counts from 1.
void note(void* vela, const std::string& call) {
  const auto handle = static_cast<int>(reinterpret_cast<std::intptr_t>(vela));
  state().log.push_back(handle == 1 ? call : call + " on handle " + std::to_string(handle));
}

std::string with(const char* function, short index) {
  return std::string(function) + " " + std::to_string(index);
}

// The flat functions return char*, as the SDK's table does; nothing writes through it.
char* text(short index, const char* Provider::*field) {
  const auto& providers = state().providers;
  const bool known = index >= 0 && static_cast<std::size_t>(index) < providers.size();
  return known ? const_cast<char*>(providers[static_cast<std::size_t>(index)].*field) : nullptr;
}

}  // namespace

}  // namespace fakevela

using fakevela::note;
using fakevela::state;
using fakevela::with;

void* newgIIVela(void) {
  void* vela = reinterpret_cast<void*>(static_cast<std::intptr_t>(++state().handles));
  note(vela, "newgIIVela");
  return vela;
}

short GetNumProviders(void* vela) {
  note(vela, "GetNumProviders");
  return state().numProviders;
}

char* GetProviderClassID(void* vela, short index) {
  note(vela, with("GetProviderClassID", index));
  return fakevela::text(index, &fakevela::Provider::classid);
}

char* GetProviderDescription(void* vela, short index) {
  note(vela, with("GetProviderDescription", index));
  return fakevela::text(index, &fakevela::Provider::description);
}

bool OpenProvider(void* vela, char* classid) {
  note(vela, std::string("OpenProvider ") + classid);
  return state().providerOpens;
}

void CloseProvider(void* vela) {
  note(vela, "CloseProvider");
}

bool OpenConnection(void* vela) {
  note(vela, "OpenConnection");
  return state().connectionOpens;
}

void CloseConnection(void* vela) {
  note(vela, "CloseConnection");
  state().onCloseConnection();
}

short GetNumDevices(void* vela) {
  note(vela, "GetNumDevices");
  return state().numDevices;
}

double GetPhysicalX(void* vela) {
  note(vela, "GetPhysicalX");
  return state().physicalX;
}

double GetPhysicalY(void* vela) {
  note(vela, "GetPhysicalY");
  return state().physicalY;
}

bool RegisterEventHandler(void* vela, PenEventHandler handler) {
  note(vela, "RegisterEventHandler");
  state().handler = handler;
  return true;
}

bool ClearInking(void* vela) {
  note(vela, "ClearInking");
  return false;  // not used by the application
}
