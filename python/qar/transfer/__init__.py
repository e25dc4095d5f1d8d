"""Copies between files: conversion, dumps, salvage and dictionary extensions."""
