' Run after regsvr32 /u: neither server can be created any more.
Option Explicit
Dim passed, failed, progId, created
passed = 0
failed = 0
For Each progId In Array("Vx.VxDef", "VxSim.Node")
    On Error Resume Next
    Set created = CreateObject(progId)
    If Err.Number = 429 Then
        passed = passed + 1
    Else
        failed = failed + 1
        WScript.Echo "FAILED: CreateObject(""" & progId & """) gave error " & Err.Number
    End If
    Err.Clear
    On Error GoTo 0
Next
WScript.Echo passed & " passed, " & failed & " failed"
