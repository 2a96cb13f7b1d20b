' Drives the registered component as a script host does: created by ProgID, late bound.
' Wine's script host prints nothing and exits 0 on an uncaught error, so every step is checked
' under On Error Resume Next and the script ends by printing the marker the test looks for.
' Argument: the device string of vmio-sim's Axis (its default fixture) with 2 inputs and 2 outputs.
Option Explicit
On Error Resume Next

Dim failures : failures = 0

Sub Fail(what)
  WScript.Echo "FAIL: " & what
  failures = failures + 1
End Sub

Sub Expect(actual, wanted, what)
  If Err.Number <> 0 Then
    Fail what & ": error " & Err.Number & " " & Err.Description
    Err.Clear
  ElseIf actual <> wanted Then
    Fail what & ": " & actual & ", not " & wanted
  End If
End Sub

Sub ExpectError(number, description, what)
  If Err.Number <> number Or Err.Description <> description Then
    Fail what & ": error " & Err.Number & " " & Err.Description
  End If
  Err.Clear
End Sub

Dim device, i, names, value
Set device = CreateObject("VMIO.Axis")
Expect IsObject(device), True, "CreateObject"

value = device.Ports
ExpectError 45003, "Not connected", "Ports before Connect"

device.Connect WScript.Arguments(0)
Expect device.Ports, 4, "Ports"
names = ""
For i = 0 To device.Ports - 1
  names = names & device.PortName(i) & ";"
Next
Expect names, "Front door;Window;Siren;Output 2;", "PortName of every port"
Expect device.PortDirection(0), 1, "PortDirection(0)"
Expect device.PortType(0), vbBoolean, "PortType(0)"
Expect device.PortValue(0), False, "PortValue(0)"

device.PortValue(2) = True
Expect device.PortValue(2), True, "an output switched on"
device.PortValue(0) = True
ExpectError 45004, "Port 1is not an output port", "an input switched"
device.PortValue(3) = 1
ExpectError 13, "Type mismatch", "an output set to a number"

device.Disconnect
value = device.PortValue(2)
ExpectError 45003, "Not connected", "PortValue after Disconnect"

' No AX200 software answers this script: the door driver reports it absent.
Dim door : Set door = CreateObject("VMIO.AxxessIDDoor")
door.Connect ""
ExpectError 45001, "The AX200 software is not found", "AxxessIDDoor.Connect"

' No logger is attached here: a logger's path opens nothing, and the logger list is empty.
Dim logger : Set logger = CreateObject("VMIO.LogIT")
logger.Connect "\\?\hid#vid_0c6f&pid_0101#0&0&0&0#{4d1e55b2-f16f-11cf-88cb-001111000030}"
ExpectError 45001, "Connection failed", "LogIT.Connect of a path that names no logger"
value = logger.Ports
ExpectError 45003, "Not connected", "LogIT.Ports after a failed Connect"

' For Each over an enumerator: the logger list.
Dim list, info, seen
Set list = CreateObject("VMIO.LogITEnum")
Expect list.Count, 0, "LogITEnum.Count"
seen = 0
For Each info In list
  seen = seen + 1
Next
Expect seen, 0, "For Each over LogITEnum"
' Item by name: Wine's script engine loses the error of a failing default-member call under Set.
Set info = list.Item(1)
ExpectError 9, "Subscript out of range", "LogITEnum.Item(1)"

If failures = 0 Then WScript.Echo "PASS com_host.vbs"
