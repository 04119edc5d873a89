/// \file
/// The facade: one object through which a client drives any of the four kinds of pad.
///
/// A client lists the providers, opens one by its class id, registers a pen callback and opens the
/// connection; later it closes the connection and the provider. Only an allocation can throw. While
/// no provider is open, every operation on the pad returns its failure value without a message. An
/// open provider serves for one connection: close it and open it again before the next one.
///
/// Threads: all operations belong to one thread, the client's. The callback runs on a thread of the
/// SDK (see PenEventHandler.h).
#ifndef GIIVELA_GIIVELA_H
#define GIIVELA_GIIVELA_H

#include "Export.h"
#include "PenEventHandler.h"

class velausb;
class velaii;
class velainkusb;
class velavision;

/// @{
/// The driver of the open provider, null while there is none. There is one of each in the process,
/// so only one facade should be alive at a time.
extern GIIVELA_API velausb* m_pvelausb;
extern GIIVELA_API velaii* m_pvelaii;
extern GIIVELA_API velainkusb* m_pvelaink;
extern GIIVELA_API velavision* m_pvelavision;
/// @}

/// A row of the provider table.
struct ProviderEntry {
  char classid[33];      ///< 32 upper-case hexadecimal digits and a terminator
  char description[64];  ///< the display name, in UTF-8
};

/// The facade. The order of its virtual operations is part of the interface.
class GIIVELA_API gIIVela {
 public:
  /// A facade with four providers, none open. Forgets the drivers of an earlier facade.
  gIIVela();

  /// Closes neither the connection nor the provider.
  virtual ~gIIVela();
  gIIVela(const gIIVela&) = delete;
  gIIVela& operator=(const gIIVela&) = delete;

  /// Ends the delivery and closes the pad. Returns once the pad has been quiet for a second, or at
  /// once when it is unplugged; the handler is not called any more then.
  virtual void CloseConnection();

  /// Opens the pad and starts the delivery to the registered handler. False when no provider is
  /// open, and, after a line on standard output, when no handler is registered. Deliberate: true in
  /// all other cases, also when the pad could not be opened; then no samples come. SIGUSR1 stays
  /// blocked in the calling thread.
  virtual bool OpenConnection();

  /// The number of providers: 4.
  virtual short GetNumProviders();

  /// The class id of provider `index`, 0 to 3; null for other indexes. The facade owns the text.
  virtual char* GetProviderClassID(short index);
  /// The display name of provider `index`, likewise, in UTF-8.
  virtual char* GetProviderDescription(short index);

  /// Does nothing: the table is fixed.
  virtual void SetProviderDescription(char* classid, char* description);

  /// Opens the first provider whose class id begins with the text: a shortened id will do, and the
  /// empty text opens provider 0. Case matters. The text must not be null; it is not written to.
  /// False when no id matches. A provider that is open is not closed; close it first.
  virtual bool OpenProvider(char* classid);

  /// Closes the open provider, if there is one. Close the connection first.
  virtual void CloseProvider();

  /// The number of attached pads of the open provider's kind; 0 without one.
  virtual short GetNumDevices();

  /// The pad's serial number, in memory from malloc that the caller frees. For the pad II and the
  /// ink pad: a hexadecimal text of up to 32 digits, which ends in 16 zeros when the pad is not
  /// connected or the request fails; null for a reply of no bytes. For the vision pad: 16 raw bytes
  /// without a terminator; null when they cannot be read. For the USB pad, which has none: null.
  virtual char* GetSerialNumber();

  /// @{
  /// An end of the range of x, y or pressure (z) in device units, as the driver gives it at the
  /// time of the call; 0 when it gives none: the vision pad's without a connection.
  virtual int GetDataRangeMinX();
  virtual int GetDataRangeMinY();
  virtual int GetDataRangeMinZ();
  virtual int GetDataRangeMaxX();
  virtual int GetDataRangeMaxY();
  virtual int GetDataRangeMaxZ();
  /// @}

  /// The width of the writing surface in inches as the pad states it, which may be any double; 0.0
  /// without an open provider, and for the pad II and the vision pad before a connection.
  virtual double GetPhysicalX();
  /// The height, likewise.
  virtual double GetPhysicalY();

  /// Sets the handler for the next OpenConnection, before or after OpenProvider. False for null,
  /// which leaves an earlier one in place.
  virtual bool RegisterEventHandler(PenEventHandler handler);

  /// Clears the ink that the pad shows. False when no provider is open, and for the vision pad also
  /// without a connection or when it accepted no bytes. Deliberate: an error (-1) counts as
  /// success. True for a pad that shows no ink.
  virtual bool ClearInking();

 private:
  template <class Failure, class Operation>
  GIIVELA_LOCAL Failure withDriver(Failure failure, Operation operation);
  GIIVELA_LOCAL int dataRange(int gIIVela::*end);

  ProviderEntry m_providers[10];  // the first m_numProviders are in use
  int m_numProviders;
  int m_curProvider;  // the open provider's index, or -1
  PenEventHandler m_eventHandler;
  // As the last query of a range left them.
  int m_minX = 0;
  int m_minY = 0;
  int m_minZ = 0;
  int m_maxX = 0;
  int m_maxY = 0;
  int m_maxZ = 0;
};

#endif
