' The family's commands as a host sends them, byte for byte at the node.

Dim node, device, command, status, data, factory, xifNode, other

' A command frame: the code and its data bytes, padded with zeros to twelve bytes.
Function Frame(bytes)
    Frame = Left(bytes & String(24, "0"), 24)
End Function

Set device = ConnectDefault(node)
Set command = device.Command

BeginCase "commands reach the command variable"
CheckEqual command.SendAllScan, True, "SendAllScan"
CheckEqual node.LastCommand, Frame("05"), "SendAllScan frame"
CheckEqual command.ResetTimer(&H102, &H304), True, "ResetTimer"
CheckEqual node.LastCommand, Frame("0601020304"), "ResetTimer frame"
CheckEqual command.Keypress(&HABCD&), True, "Keypress"
CheckEqual node.LastCommand, Frame("07ABCD"), "Keypress frame"
CheckEqual command.ClearLog(7), True, "ClearLog"
CheckEqual node.LastCommand, Frame("0A07"), "ClearLog frame"

BeginCase "GenericCommand takes a script's array of numbers"
CheckEqual command.GenericCommand(&H20, Array(1, 2, 3)), True, "GenericCommand"
CheckEqual node.LastCommand, Frame("20010203"), "GenericCommand frame"
CheckEqual command.GenericCommand(&H21, Array(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11)), True, _
    "eleven data bytes"
CheckEqual node.LastCommand, "21" & "0102030405060708090A" & "00", "cut at ten data bytes"
On Error Resume Next
command.ClearLog 300
CheckError 6, "Vx", "Overflow", "a one-byte parameter beyond its byte"
On Error GoTo 0

BeginCase "command status"
command.SendAllScan
status = Empty
command.UploadStatus status
CheckEqual TypeName(status), "IOrvexCommandStatus", "the status object comes back by reference"
CheckEqual status.CmdType, CLng(5), "the status refers to the last command"
CheckEqual status.Status(0), True, "and says it was accepted"

BeginCase "object requests and object status"
device.DownloadRequest 1, 2
Set status = device.UploadStatus
CheckEqual status.ObjectID, CLng(1), "the status answers for object 1"

BeginCase "a node without a command status variable"
Set factory = CreateObject("Vx.VxDef")
Set xifNode = CreateObject("VxSim.Node")
xifNode.Load "..\..\..\sim\data\xif\6kEvbMultiSensor.XIF"
Set other = factory.CreateDeviceManager()
other.Connect xifNode, Nothing
status = Empty
On Error Resume Next
other.Command.UploadStatus status
CheckError &H80040401, "Vx.OrvexCommand.IOrvexCommand_UploadStatus()", _
    "Failed to find the Orvex Command Status variable", "UploadStatus"
On Error GoTo 0
CheckEqual TypeName(status), "IOrvexCommandStatus", "the status object is handed out all the same"
CheckEqual status.CmdType, CLng(0), "and reads as no status"
CheckEqual other.Command.SendAllScan, False, "a command without a command variable"

Finish
