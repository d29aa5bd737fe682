#!/bin/sh
# Makes the circuit of the data interface: NewVpiVci.sh 1.VPI.VCI MAC-ADDRESS
exec gateway circuit new -- "${1-}" "${2-}"
